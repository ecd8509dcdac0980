#pragma once

#include <optional>
#include <string>
#include <vector>

namespace KoTest
{

/// A fresh directory under TMPDIR or /tmp; removed with its content at the end.
class TemporaryDirectory
{
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::string& path() const { return m_path; }
    /// The path of an entry of this name, existing or not.
    std::string file(const std::string& name) const { return m_path + "/" + name; }
    /// The names of the entries, sorted.
    std::vector<std::string> names() const;
    /// The bytes of a file; empty when it cannot be read.
    std::string read(const std::string& name) const;
    void write(const std::string& name, const std::string& bytes) const;

private:
    std::string m_path;
};

/// Sets an environment variable; null removes it.
void setVariable(const char* name, const char* value);

/// Sets an environment variable and restores the former state at the end.
class ScopedEnvironment
{
public:
    ScopedEnvironment(const char* name, const char* value);
    ~ScopedEnvironment();
    ScopedEnvironment(const ScopedEnvironment&) = delete;
    ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

private:
    std::string m_name;
    std::optional<std::string> m_former;
};

} // namespace KoTest
