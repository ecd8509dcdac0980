#include "Rendezvous.h"

#include <cstdio>
#include <fstream>

Rendezvous::Rendezvous(const std::string& directory)
    : m_path(directory + "/recorder")
{
}

bool Rendezvous::publish(const Address& address) const
{
    const std::string temporary = m_path + "." + std::to_string(address.pid);
    std::ofstream file(temporary);
    file << address.pid << ' ' << address.channel << '\n';
    file.close();
    return file.good() && std::rename(temporary.c_str(), m_path.c_str()) == 0;
}

std::optional<Address> Rendezvous::read() const
{
    std::ifstream file(m_path);
    Address address{};
    if (!(file >> address.pid >> address.channel))
    {
        return std::nullopt;
    }
    return address;
}

void Rendezvous::remove() const
{
    std::remove(m_path.c_str());
}
