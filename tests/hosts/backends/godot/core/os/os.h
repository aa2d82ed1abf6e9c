#pragma once

#include "servers/audio_server.h"
