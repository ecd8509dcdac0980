// Appended to all public headers: every member of the templates compiles.
template class TKoVector<CKoString>;
template class TKoSortedVector<CKoString>;
template class TKoMap<CKoString, int>;
template class TKoSmallVector<CKoString>;
template class TKoPtrVector<CKoString>;
template class TKoConstRefCountedVector<CKoString>;
template class TKoQueue<CKoString>;
template class TKoList<CKoString>;
template class TKoHashArray<CKoString, int>;
template class TKoHashMap<CKoString>;

struct SJob : KoIntrusive::SKoListBaseHook, KoIntrusive::SKoSlistBaseHook
{
};
using Ring = TKoIntrusiveList<SJob, KoIntrusive::TKoListBaseHookAccessor<SJob>>;
using Chain = TKoIntrusiveSlist<SJob, KoIntrusive::TKoSlistBaseHookAccessor<SJob>>;
template class TKoIntrusiveList<SJob, KoIntrusive::TKoListBaseHookAccessor<SJob>>;
template class TKoIntrusiveSlist<SJob, KoIntrusive::TKoSlistBaseHookAccessor<SJob>>;
