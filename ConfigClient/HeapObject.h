// Puts the objects of a class on the library's heap.
#pragma once

#include <cstddef>

#include "VX/ParamList.h"

namespace ConfigConnection {

class HeapObject {
public:
    static void* operator new(std::size_t size) { return VXAllocate(size); }
    static void operator delete(void* memory) noexcept { VXFree(memory); }

protected:
    ~HeapObject() = default;
};

}  // namespace ConfigConnection
