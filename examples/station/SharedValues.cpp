#include "SharedValues.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <utility>

#include "pf/oswrapper/KoOperatingSystem.h"

namespace
{

constexpr unsigned int MOST_SOURCES = 16;
constexpr unsigned int TEXT = 48;
constexpr int MOST_TEXT = TEXT - 1;
constexpr unsigned long long PARTS_OF_UNIT = 1000;

} // namespace

struct SharedValues::Row
{
    char name[TEXT];
    char unit[TEXT];
    std::atomic<unsigned long long> value;
    std::atomic<unsigned int> samples;
};

/// Begins as zeros, which is how it begins.
struct SharedValues::Board
{
    /// Whatever somebody may have written there, there are no more.
    unsigned int count() const { return std::min(sources, MOST_SOURCES); }

    alignas(8) char object[TEXT]; ///< the name of the memory
    unsigned int sources;
    std::atomic<unsigned int> kept;
    std::atomic<bool> isOver;
    Row rows[MOST_SOURCES];
};

static_assert(std::atomic<unsigned long long>::is_always_lock_free, "a lock would be one process's own");

SharedValues SharedValues::begin(const TKoVector<Source>& sources)
{
    char object[TEXT];
    std::snprintf(object, sizeof(object), "/station-%d", KoOperatingSystem::getCurrentPID());
    // The board has to be aligned more than the memory's data is.
    SharedValues values(CKoReferencedSharedMemory::create(object, sizeof(Board) + alignof(Board)));
    if (!values.isUsable())
    {
        return values;
    }
    Board& board = *values.m_board;
    std::snprintf(board.object, sizeof(board.object), "%s", object);
    for (const Source& source : sources)
    {
        if (board.sources < MOST_SOURCES)
        {
            Row& row = board.rows[board.sources++];
            std::snprintf(row.name, sizeof(row.name), "%s", source.name.c_str());
            std::snprintf(row.unit, sizeof(row.unit), "%s", source.unit.c_str());
        }
    }
    return values;
}

SharedValues::SharedValues(Reference memory)
    : m_memory(std::move(memory))
    , m_board(nullptr)
{
    if (m_memory && m_memory->getDataPtr() != nullptr &&
        m_memory->getSize() == sizeof(Board) + alignof(Board))
    {
        void* data = m_memory->getDataPtr();
        std::size_t space = m_memory->getSize();
        m_board = static_cast<Board*>(std::align(alignof(Board), sizeof(Board), data, space));
    }
}

SharedValues::SharedValues(SharedValues&& other)
    : m_memory(std::move(other.m_memory))
    , m_board(std::exchange(other.m_board, nullptr))
{
}

SharedValues::~SharedValues()
{
    settle();
}

SharedValues& SharedValues::operator=(SharedValues&& other)
{
    settle();
    m_memory = std::move(other.m_memory);
    m_board = std::exchange(other.m_board, nullptr);
    return *this;
}

void SharedValues::set(unsigned int source, unsigned long long value)
{
    if (isUsable() && source < m_board->count())
    {
        m_board->rows[source].value = value;
        ++m_board->rows[source].samples;
    }
}

void SharedValues::countKept()
{
    if (isUsable())
    {
        ++m_board->kept;
    }
}

void SharedValues::end()
{
    if (isUsable())
    {
        m_board->isOver = true;
    }
}

bool SharedValues::isOver() const
{
    return m_board->isOver;
}

unsigned int SharedValues::samples() const
{
    unsigned int sum = 0;
    for (unsigned int source = 0; source < m_board->count(); ++source)
    {
        sum += m_board->rows[source].samples;
    }
    return sum;
}

void SharedValues::print() const
{
    std::printf("viewer: %u samples, %u kept;", samples(), m_board->kept.load());
    for (unsigned int source = 0; source < m_board->count(); ++source)
    {
        const Row& row = m_board->rows[source];
        const unsigned long long value = row.value;
        std::printf(" %.*s %llu.%03llu %.*s;", MOST_TEXT, row.name, value / PARTS_OF_UNIT,
                    value % PARTS_OF_UNIT, MOST_TEXT, row.unit);
    }
    std::printf("\n");
}

/// Drops the reference, and removes what is left by processes that were killed.
void SharedValues::settle()
{
    if (!isUsable())
    {
        return;
    }
    char object[TEXT];
    std::snprintf(object, sizeof(object), "%.*s", MOST_TEXT, m_board->object);
    m_board = nullptr;
    m_memory = {};
    CKoReferencedSharedMemory::removeAbandoned(object);
}
