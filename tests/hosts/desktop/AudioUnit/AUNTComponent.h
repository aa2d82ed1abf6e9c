#pragma once

#include "Desktop.h"
