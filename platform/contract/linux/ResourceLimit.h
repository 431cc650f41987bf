// A lack of resources, on purpose.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace testing_support {

// As long as it lives, the process has no more of a resource than this (RLIMIT_...).
class CResourceLimit {
public:
    CResourceLimit(int resource, rlim_t most) : m_resource(resource)
    {
        EXPECT_EQ(::getrlimit(m_resource, &m_before), 0);
        const rlimit limit = {most, m_before.rlim_max};
        EXPECT_EQ(::setrlimit(m_resource, &limit), 0);
    }
    ~CResourceLimit() { EXPECT_EQ(::setrlimit(m_resource, &m_before), 0); }
    CResourceLimit(const CResourceLimit&) = delete;
    CResourceLimit& operator=(const CResourceLimit&) = delete;

private:
    int m_resource;
    rlimit m_before = {};
};

} // namespace testing_support
