#ifndef TQPLATFORM_CORESERVICES_H
#define TQPLATFORM_CORESERVICES_H

/* What audio programs take from here: the scalars and the objects of CoreFoundation. */

#include <CoreFoundation/CoreFoundation.h>
#include <MacTypes.h>

#endif
