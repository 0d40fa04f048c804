// A value that every thread has for itself.
#pragma once

#ifdef _WIN32
#include <new>

#include "platform/windows_text.h"
#endif

namespace korvane {

#ifdef _WIN32

// The compiler's thread-local objects keep a module in memory until their thread ends, so that a server could not be
// unloaded. The system's slots are emptied at the end of a thread and when the slot goes.
template <class T>
T& of_this_thread() {
    struct Slot {
        Slot() : index(FlsAlloc(remove)) {
            if (index == FLS_OUT_OF_INDEXES) throw std::bad_alloc();
        }
        ~Slot() { FlsFree(index); }
        static void WINAPI remove(void* value) { delete static_cast<T*>(value); }
        const DWORD index;
    };
    static const Slot slot;
    void* value = FlsGetValue(slot.index);
    if (!value) FlsSetValue(slot.index, value = new T);
    return *static_cast<T*>(value);
}

#else

/// The current thread's T, made at its first use; it is destroyed with the thread or with the module.
template <class T>
T& of_this_thread() {
    thread_local T value;
    return value;
}

#endif

}  // namespace korvane
