#pragma once

#include <optional>
#include <string>

/// Where a recorder receives.
struct Address
{
    int pid;
    int channel;
};

/// The file of a directory in which the recorder tells where it receives. A new recorder replaces the file of
/// the one before it in one step: whoever reads it sees a whole address.
class Rendezvous
{
public:
    explicit Rendezvous(const std::string& directory);

    /// \return whether it could be written; the reason is in `errno`.
    bool publish(const Address& address) const;
    /// What was published last; nothing if there is nothing to read. That recorder may have ended since.
    std::optional<Address> read() const;
    void remove() const;

private:
    std::string m_path;
};
