#pragma once

#include "NSException.h"
#include "NSFileManager.h"
#include "NSLock.h"
#include "NSNotification.h"
#include "NSObjCRuntime.h"
#include "NSPointerArray.h"
#include "NSString.h"
#include "NSThread.h"
