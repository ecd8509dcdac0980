#pragma once

#include <atomic>

#include "Source.h"
#include "pf/containers/TKoVector.h"
#include "pf/oswrapper/CKoReferencedSharedMemory.h"

/// The newest value of each source, in memory that a sampler, its recorder and any number of viewers share.
///
/// The sampler begins it and changes the values, the recorder counts what it keeps, viewers read. Every word
/// is changed in one step and there is no lock: a process can be killed at any instruction, and the others go
/// on. What a killed process had counted of the memory's references is settled by whoever ends last: each
/// drops its own and then removes what nobody alive maps.
class SharedValues
{
public:
    using Reference = TKoRefCountPointer<CKoReferencedSharedMemory>;

    /// Begins with no samples. Unusable if there is no memory to be had.
    static SharedValues begin(const TKoVector<Source>& sources);

    /// \param memory what came from a stream; null or without data is unusable.
    explicit SharedValues(Reference memory = {});
    ~SharedValues();
    SharedValues(SharedValues&& other);
    SharedValues& operator=(SharedValues&& other);

    bool isUsable() const { return m_board != nullptr; }

    /// To be written to a stream for another process.
    const Reference& memory() const { return m_memory; }

    /// A new sample of the source of this index, in thousandths of its unit.
    void set(unsigned int source, unsigned long long value);
    void countKept();
    /// Nothing follows.
    void end();

    bool isOver() const;
    /// Changes whenever a value does.
    unsigned int samples() const;
    /// Prints all values that there are.
    void print() const;

private:
    struct Row;
    struct Board;

    void settle();

    Reference m_memory;
    Board* m_board;
};
