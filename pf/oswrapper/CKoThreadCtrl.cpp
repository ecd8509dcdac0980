#include "pf/oswrapper/CKoThreadCtrl.h"

const int CKoThreadCtrl::PRIORITY_LOWEST;
const int CKoThreadCtrl::PRIORITY_BELOW_NORMAL;
const int CKoThreadCtrl::PRIORITY_NORMAL;
const int CKoThreadCtrl::PRIORITY_ABOVE_NORMAL;
const int CKoThreadCtrl::PRIORITY_HIGHEST;
const int CKoThreadCtrl::DEFAULTPRIORITY;
const int CKoThreadCtrl::INHERITPRIORITY;
const int CKoThreadCtrl::DEFAULTSTACKSIZE;

CKoThreadCtrl::IRunnable::~IRunnable() = default;
