// An object that is given back when a function returns early.
#ifndef DT_BASE_OWNER_H
#define DT_BASE_OWNER_H

#include <stdint.h>

namespace dt {

// Owns an object until it is handed over with take(); gives it to Release otherwise.
template <typename T, auto Release> class Owner {
public:
    explicit Owner(T *object) : object_(object) {}
    ~Owner() {
        if (object_) Release(object_);
    }
    Owner(const Owner &) = delete;
    Owner &operator=(const Owner &) = delete;

    explicit operator bool() const { return object_ != nullptr; }
    T *operator->() const { return object_; }
    T *get() const { return object_; }

    T *take() {
        T *object = object_;
        object_ = nullptr;
        return object;
    }

private:
    T *object_;
};

// Gives back an object that a list keeps as a value.
template <auto Release, typename T> void release_object(void (*)(T *), uintptr_t value) {
    Release(reinterpret_cast<T *>(value));
}
template <auto Release> void release_value(uintptr_t value) {
    release_object<Release>(Release, value);
}

} // namespace dt

#endif
