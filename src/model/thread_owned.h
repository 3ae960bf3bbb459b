// One T per thread, made on its first use and deleted when the thread ends.
#pragma once

#include <new>

namespace cimxml {

template <typename T>
class ThreadOwned {
public:
    // The calling thread's T; NULL once the thread is ending (a call from
    // another thread-local's destructor) or when it cannot be made, so
    // callers fall back to plain allocation.
    static T* get() noexcept {
        if (ending_) return nullptr;
        if (!object_) {
            reaper_.armed = true;  // its first use registers its destructor for this thread
            object_ = new (std::nothrow) T;
        }
        return object_;
    }

private:
    // Plain values, readable while the thread's destructors run, unlike an
    // object whose lifetime has ended. Initial-exec: read on every record
    // allocation, they must not cost a __tls_get_addr call each; the few
    // bytes come from the static TLS glibc keeps spare for loaded libraries.
    static inline thread_local T* object_ __attribute__((tls_model("initial-exec"))) = nullptr;
    static inline thread_local bool ending_ __attribute__((tls_model("initial-exec"))) = false;

    struct Reaper {
        bool armed = false;
        ~Reaper() {
            ending_ = true;
            delete object_;
            object_ = nullptr;
        }
    };
    static inline thread_local Reaper reaper_;
};

}  // namespace cimxml
