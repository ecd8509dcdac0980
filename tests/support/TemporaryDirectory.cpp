#include "tests/support/TemporaryDirectory.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <gtest/gtest.h>

namespace KoTest
{

namespace
{

std::string makeDirectory()
{
    const char* const parent = std::getenv("TMPDIR");
    std::string path = std::string(parent == nullptr ? "/tmp" : parent) + "/ko-test-XXXXXX";
    if (mkdtemp(path.data()) == nullptr)
        ADD_FAILURE() << "cannot create " << path;
    return path;
}

} // namespace

TemporaryDirectory::TemporaryDirectory()
    : m_path(makeDirectory())
{
}

TemporaryDirectory::~TemporaryDirectory()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::vector<std::string> TemporaryDirectory::names() const
{
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(m_path))
        result.push_back(entry.path().filename().string());
    std::sort(result.begin(), result.end());
    return result;
}

std::string TemporaryDirectory::read(const std::string& name) const
{
    std::ifstream stream(file(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

void TemporaryDirectory::write(const std::string& name, const std::string& bytes) const
{
    std::ofstream stream(file(name), std::ios::binary);
    stream << bytes;
    EXPECT_TRUE(stream.good()) << file(name);
}

void setVariable(const char* name, const char* value)
{
    if (value == nullptr)
        unsetenv(name);
    else
        setenv(name, value, 1);
}

ScopedEnvironment::ScopedEnvironment(const char* name, const char* value)
    : m_name(name)
{
    if (const char* const former = std::getenv(name))
        m_former = former;
    setVariable(name, value);
}

ScopedEnvironment::~ScopedEnvironment()
{
    setVariable(m_name.c_str(), m_former ? m_former->c_str() : nullptr);
}

} // namespace KoTest
