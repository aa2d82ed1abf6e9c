#pragma once

/* The program's own is written for one processor; without it the back end takes its plain loops. */
