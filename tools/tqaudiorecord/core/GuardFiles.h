#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>

namespace tqrecorder {

/// What is wrong with a crash guard's folder whose files cannot be used, and what to do, as a
/// clause for a person. Looks at the folder.
[[nodiscard]] inline std::string guardFilesAdvice(const std::string& folder) {
    namespace fs = std::filesystem;
    std::error_code failure;
    if (!fs::is_directory(folder, failure)) {
        // The nearest that is there is the one that keeps it from being made.
        fs::path above = fs::path(folder).parent_path();
        while (above.has_relative_path() && !fs::exists(above, failure)) {
            above = above.parent_path();
        }
        return "the crash guard's folder " + folder +
               " cannot be made; see to it that you may write to " + above.string();
    }
    bool isWritable = access(folder.c_str(), R_OK | W_OK | X_OK) == 0;
    for (const auto& entry : fs::directory_iterator(folder, failure)) {
        isWritable = isWritable && access(entry.path().c_str(), R_OK | W_OK) == 0;
    }
    return isWritable ? "the crash guard's files in " + folder +
                            " are damaged; delete that folder and start the program again"
                      : "the crash guard's files in " + folder +
                            " cannot be read and written; see to it that you may";
}

}  // namespace tqrecorder
