#pragma once

#include "rdpsnd_main.h"
