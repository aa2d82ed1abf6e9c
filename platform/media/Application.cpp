#include <TQPlatform/Application.h>
#include <UIKit/UIKit.h>

#include <exception>

void TQApplicationEnteredBackground() {
    try {
        NSNotificationCenter::defaultCenter().postNotificationName(
            UIApplicationDidEnterBackgroundNotification);
    } catch (const std::exception&) {
        // No memory for a notice: nothing else hangs on it.
    }
}
