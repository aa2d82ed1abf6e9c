#pragma once

/// How often any thread of this program has called an operator new so far.
long AllocationCount();
