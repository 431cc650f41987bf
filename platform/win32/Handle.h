// Owners of Windows resources: one template, one trait a kind of resource.
#pragma once

#include "platform/Types.h"

#include <utility>

namespace platform::win32 {

// Owns one resource, closed when the owner goes, is reset or is assigned to. Trait: its Type, Invalid() (the value that
// means none) and Close(Type). A default-made owner holds none. One thread at a time.
template <class Trait>
class CUniqueResource {
public:
    using Type = typename Trait::Type;

    CUniqueResource() = default;
    explicit CUniqueResource(Type resource) : m_resource(resource) {}
    ~CUniqueResource() { Reset(); }
    CUniqueResource(CUniqueResource&& other) noexcept : m_resource(std::exchange(other.m_resource, Trait::Invalid())) {}
    CUniqueResource& operator=(CUniqueResource&& other) noexcept
    {
        if (this != &other) {
            Reset(std::exchange(other.m_resource, Trait::Invalid()));
        }
        return *this;
    }

    // Closes what is held and takes the new resource, by default none. The thread's last error stays.
    void Reset(Type resource = Trait::Invalid())
    {
        const Type held = std::exchange(m_resource, resource);
        if (held != Trait::Invalid()) {
            const DWORD lastError = ::GetLastError();
            Trait::Close(held);
            ::SetLastError(lastError);
        }
    }

    // The resource, still owned here.
    Type Get() const { return m_resource; }
    // Whether there is one.
    explicit operator bool() const { return m_resource != Trait::Invalid(); }
    // For functions that give a resource through a pointer; closes what is held.
    Type* Receive()
    {
        Reset();
        return &m_resource;
    }

private:
    Type m_resource = Trait::Invalid();
};

// Handles whose "none" is null: threads, mutexes, events, timers, processes, file mappings.
struct KernelHandleTrait {
    using Type = HANDLE;
    static Type Invalid() { return nullptr; }
    static void Close(Type handle) { ::CloseHandle(handle); }
};
using CKernelHandle = CUniqueResource<KernelHandleTrait>;

// Handles of CreateFileW, whose "none" is INVALID_HANDLE_VALUE.
struct FileHandleTrait {
    using Type = HANDLE;
    static Type Invalid() { return INVALID_HANDLE_VALUE; }
    static void Close(Type handle) { ::CloseHandle(handle); }
};
using CFileHandle = CUniqueResource<FileHandleTrait>;

struct RegistryKeyTrait {
    using Type = HKEY;
    static Type Invalid() { return nullptr; }
    static void Close(Type key) { ::RegCloseKey(key); }
};
using CRegistryKey = CUniqueResource<RegistryKeyTrait>;

// A view of a file mapping.
struct MappedViewTrait {
    using Type = void*;
    static Type Invalid() { return nullptr; }
    static void Close(Type view) { ::UnmapViewOfFile(view); }
};
using CMappedView = CUniqueResource<MappedViewTrait>;

} // namespace platform::win32
