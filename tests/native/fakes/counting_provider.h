// Our library behind counters. Number 110 (buffers with a layout) and 113 (complex
// iterator pointers) are always hidden, so that the fallbacks run; tests can hide more.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace counting {

struct Counters {
    std::map<int, int> lookups;  // get_function_ptr requests by number
    std::map<int, int> calls;    // calls of the counted operations by number
    int bufferFrees = 0;         // runs of the deleter of blocks from array_factory_create_buffer
    int copiedReleases = 0;      // array_release_buffer calls told the handle is shared: a copy
    std::vector<std::string> destroyed;  // "array", "iterator", "reference", in order
};

Counters& counters();
void hide(int number);
void reveal(int number);

}  // namespace counting
