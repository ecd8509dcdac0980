#include "pf/oswrapper/CKoThreadSafeRefCounter.h"

static_assert(sizeof(CKoThreadSafeRefCounter) == 2 * sizeof(void*), "virtual table and count");

CKoThreadSafeRefCounter::~CKoThreadSafeRefCounter() = default;
