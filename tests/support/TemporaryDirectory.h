#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace KoTest
{

/// A fresh directory under TMPDIR or /tmp; removed with its content at the end.
class TemporaryDirectory
{
public:
    TemporaryDirectory() { EXPECT_NE(mkdtemp(m_path.data()), nullptr) << m_path; }
    ~TemporaryDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return m_path; }
    /// The path of an entry of this name, existing or not.
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    /// The names of the entries.
    std::set<std::string> names() const
    {
        std::set<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(m_path))
            result.insert(entry.path().filename().string());
        return result;
    }
    /// The bytes of a file; empty when it cannot be read.
    std::string read(const std::string& name) const
    {
        std::ifstream stream(file(name), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
    }
    void write(const std::string& name, const std::string& bytes) const
    {
        EXPECT_TRUE((std::ofstream(file(name), std::ios::binary) << bytes).good()) << file(name);
    }

private:
    std::string m_path = std::filesystem::temp_directory_path() / "ko-test-XXXXXX";
};

/// Sets an environment variable; null removes it.
inline void setVariable(const char* name, const char* value)
{
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
}

/// Sets an environment variable and restores the former state at the end.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const char* value)
        : m_name(name)
    {
        if (const char* const former = std::getenv(name))
            m_former = former;
        setVariable(name, value);
    }
    ~ScopedEnvironment() { setVariable(m_name, m_former ? m_former->c_str() : nullptr); }
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_former;
};

} // namespace KoTest
