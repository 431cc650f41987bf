// The position of a virtual function in its class's table, which is part of the contract of several classes.
#pragma once

#include <bit>
#include <cstddef>
#include <type_traits>

namespace testing_support {

// The slot of a virtual function, counted from 0 with the virtual destructor, declared first, as slot 0; -1 for a
// function that is not virtual. member: &Class::Function, with a static_cast to its type when it is overloaded.
//
// Both compilers follow the Itanium C++ ABI: a pointer to a virtual member function holds 1 plus the byte offset of its
// entry in the table (an address, which is even, for others), and the destructor takes two entries.
template <class Class, class Signature>
int SlotOf(Signature Class::*member)
{
    static_assert(std::is_member_function_pointer_v<decltype(member)>);
    static_assert(std::has_virtual_destructor_v<Class>);
    struct Representation {
        std::ptrdiff_t pointer;
        std::ptrdiff_t adjustment;
    };
    static_assert(sizeof(member) == sizeof(Representation));

    const auto parts = std::bit_cast<Representation>(member);
    if (parts.pointer % 2 == 0) {
        return -1;
    }
    constexpr int kExtraDestructorEntries = 1;
    return static_cast<int>((parts.pointer - 1) / static_cast<std::ptrdiff_t>(sizeof(void*))) - kExtraDestructorEntries;
}

} // namespace testing_support
