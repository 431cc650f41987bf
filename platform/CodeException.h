// The form that the program's exceptions share: a failure of one facility with the number that says what failed.
#pragma once

#include <stdexcept>

namespace platform {

// Value: the type of the number, a last-error code or a COM status. Each facility derives a class of its own, which is
// what a handler catches.
template <class Value>
class CCodeException : public std::runtime_error {
public:
    Value Code() const { return m_code; }

protected:
    // what: a literal that names the facility.
    CCodeException(const char* what, Value code) : std::runtime_error(what), m_code(code) {}

private:
    Value m_code;
};

} // namespace platform
