// The barrier between C++ and the interpreter, put around every slot and method: no C++
// exception of the module's own unwinds into the interpreter. std::bad_alloc becomes
// MemoryError and any other standard exception RuntimeError. The data-array library's
// failures pass on as they are: they are meant to end the process.
#pragma once

#include <Python.h>

#include <exception>
#include <new>
#include <type_traits>

#include "data_array/exceptions.h"

namespace kerova {

template <auto Slot>
struct Barrier;

template <typename R, typename... Args, R (*Slot)(Args...)>
struct Barrier<Slot> {
    static R call(Args... args) {
        try {
            return Slot(args...);
        } catch (const Exception&) {
            throw;
        } catch (const std::bad_alloc&) {
            PyErr_NoMemory();
        } catch (const std::exception& error) {
            PyErr_SetString(PyExc_RuntimeError, error.what());
        }
        if constexpr (std::is_pointer_v<R>) {
            return nullptr;
        } else if constexpr (!std::is_void_v<R>) {
            return -1;
        }
    }
};

// The slot `Slot` behind the barrier, as a plain function pointer of the same type.
template <auto Slot>
constexpr auto guarded = &Barrier<Slot>::call;

}  // namespace kerova
