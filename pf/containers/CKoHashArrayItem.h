#pragma once

/// One item of a hash array: in the table itself, or a node behind it.
struct CKoHashArrayItem
{
    void* key;
    void* value;
    CKoHashArrayItem*
        next; ///< null in an empty bucket; the table's end marker behind the last item of a chain
};
