#include "session/Notes.h"

#include <algorithm>

namespace tqrecorder {
namespace {

constexpr std::size_t kMostNotes = 32;

}  // namespace

void Notes::add(const std::string& text) {
    const auto found = std::find_if(notes_.begin(), notes_.end(),
                                    [&text](const Note& note) { return note.text == text; });
    if (found != notes_.end()) {
        ++found->times;
    } else if (notes_.size() < kMostNotes) {
        notes_.push_back({text});
    } else {
        ++further_;
    }
}

std::vector<std::string> Notes::lines() const {
    std::vector<std::string> list;
    for (const Note& note : notes_) {
        list.push_back(note.times == 1 ? note.text
                                       : note.text + " (" + std::to_string(note.times) + " times)");
    }
    if (further_ > 0) {
        list.push_back("and " + std::to_string(further_) + " more of that kind");
    }
    return list;
}

}  // namespace tqrecorder
