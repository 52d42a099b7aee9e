// An argument vector for a test: the program's name, the arguments, a null.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "Platform/Types.h"

class Arguments {
public:
    Arguments(std::initializer_list<const char*> arguments) : texts_{"orv-audio-feed"} {
        texts_.insert(texts_.end(), arguments.begin(), arguments.end());
        for (std::string& text : texts_) pointers_.push_back(text.data());
        pointers_.push_back(nullptr);
    }
    i32 Count() const { return static_cast<i32>(texts_.size()); }
    char** Values() { return pointers_.data(); }

private:
    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
};
