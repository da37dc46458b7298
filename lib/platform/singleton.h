#pragma once

// Registration of process-wide objects. Every misuse is a failed assertion.

#include <atomic>
#include <cstddef>
#include <mutex>

#include "lib/platform/assertion.h"
#include "lib/platform/type_name.h"

namespace strata {

/// Base of a class with one instance at a time, created and destroyed by its owner (a local or member
/// object). Registration is not synchronised: owners construct these objects before other threads use them.
template <class T>
class Singleton {
public:
    Singleton(const Singleton&) = delete;
    Singleton& operator=(const Singleton&) = delete;

    /// @return the instance; without one the process ends by an assertion, so it is never null
    static T* GetInstance() {
        PLATFORM_ASSERT_VALID_POINTER_AT(
            SINGLETON_HEADER, 69,
            ("static T* strata::Singleton<T>::GetInstance() [with T = " + TypeName<T>() + "]").c_str(),
            sm_instance);
        return sm_instance;
    }

    /// Whether there is an instance, for callers that can do without it.
    static bool Exists() { return sm_instance != nullptr; }

protected:
    Singleton() {
        const auto function = [] {
            return "strata::Singleton<T>::Singleton() [with T = " + TypeName<T>() + "]";
        };
        PLATFORM_ASSERT_AT(SINGLETON_HEADER, 49, function().c_str(), sm_instance == NULL);
        PLATFORM_ASSERT_VALID_POINTER_AT(SINGLETON_HEADER, 50, function().c_str(), this);
        sm_instance = static_cast<T*>(this);
    }

    /// Also runs when the derived constructor throws: a failed construction leaves no registration behind.
    ~Singleton() {
        PLATFORM_ASSERT_AT(SINGLETON_HEADER, 56,
                           ("strata::Singleton<T>::~Singleton() [with T = " + TypeName<T>() + "]").c_str(),
                           sm_instance == this);
        sm_instance = nullptr;
    }

private:
    static constexpr const char* SINGLETON_HEADER = "lib/platform/singleton.h";
    static inline T* sm_instance = nullptr;
};

/// Base of a class whose one instance is created on first use and lives until the process ends.
template <class T>
class AutoCreateSingleton {
public:
    AutoCreateSingleton(const AutoCreateSingleton&) = delete;
    AutoCreateSingleton& operator=(const AutoCreateSingleton&) = delete;

    /// Creates the instance on the first call; concurrent first callers wait. Any thread.
    /// @throws what T's constructor throws; nothing is registered then and the next call tries again
    static T* GetInstance() {
        // Not std::call_once: a creation that throws confuses the thread sanitizer there.
        static std::atomic<bool> once_flag{false};
        static std::mutex creation;
        if (!once_flag) {
            const std::lock_guard lock(creation);
            // cppcheck-suppress identicalInnerCondition ; another thread may have created it meanwhile
            if (!once_flag) {
                // NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks): it registers itself
                new T;
                once_flag = true;
                // NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)
            }
        }
        return sm_instance;
    }

protected:
    AutoCreateSingleton() {
        const auto function = [] {
            return "strata::AutoCreateSingleton<T>::AutoCreateSingleton() [with T = " + TypeName<T>() + "]";
        };
        PLATFORM_ASSERT_AT(SINGLETON_HEADER, 116, function().c_str(), sm_instance == NULL);
        PLATFORM_ASSERT_VALID_POINTER_AT(SINGLETON_HEADER, 117, function().c_str(), this);
        sm_instance = static_cast<T*>(this);
    }

    /// Runs when the derived constructor throws, so that the next creation finds no registration, and at the
    /// end of instances that tests own. The instance that GetInstance created is never destroyed.
    ~AutoCreateSingleton() { sm_instance = nullptr; }

private:
    static constexpr const char* SINGLETON_HEADER = "lib/platform/singleton.h";
    static inline T* sm_instance = nullptr;
};

}  // namespace strata
