#pragma once

#include "mediastreamer2/msfilter.h"
