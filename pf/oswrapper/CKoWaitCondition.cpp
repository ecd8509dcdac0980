#include "pf/oswrapper/CKoWaitCondition.h"

#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/CKoMutex.h"
#include "pf/oswrapper/KoConditionVariableAccess.h"
#include "pf/oswrapper/KoError.h"

#include <cerrno>

CKoWaitCondition::CKoWaitCondition()
    : m_condition(KoOSTypes::sInvalidCondVarHandle)
{
    if (!KoConditionVariableAccess::create(m_condition))
    {
        KoError::fatalOSError(0, "cannot create wait condition");
    }
}

CKoWaitCondition::~CKoWaitCondition()
{
    const int error = KoPlatform::pthread_cond_destroy(&m_condition);
    if (error != 0)
    {
        errno = error;
        KoError::reportOSError(0, KoSyslog::Error, "cannot destroy wait condition");
    }
}

bool CKoWaitCondition::wait(CKoMutex& mutex, int timeoutMs)
{
    return KoConditionVariableAccess::wait(m_condition, mutex.m_mutex, timeoutMs);
}

bool CKoWaitCondition::wait(CKoCriticalSection& section, int timeoutMs)
{
    return KoConditionVariableAccess::wait(m_condition, section.m_mutex, timeoutMs);
}

int CKoWaitCondition::signal()
{
    return KoPlatform::pthread_cond_signal(&m_condition);
}

int CKoWaitCondition::broadcast()
{
    return KoPlatform::pthread_cond_broadcast(&m_condition);
}
