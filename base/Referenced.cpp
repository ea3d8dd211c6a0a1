#include "Referenced.h"

CReferenced::CReferenced() : m_nRefCount(0), m_pObserverSet(nullptr) {}

CReferenced::CReferenced(const CReferenced&) : m_nRefCount(0), m_pObserverSet(nullptr) {}

CReferenced::~CReferenced()
{
    // After an Unref that signalled, the set is empty and this reaches nobody.
    SignalObservers(true, false);
    ObserverSet* set = m_pObserverSet;
    m_pObserverSet = nullptr;
    if (set)
        set->Unref();
}

int CReferenced::Ref()
{
    return ++m_nRefCount;
}

int CReferenced::Unref()
{
    int count = --m_nRefCount;
    if (count == 0)
        SignalObservers(true, true);
    return count;
}

int CReferenced::UnrefNoDelete()
{
    return --m_nRefCount;
}

ObserverSet* CReferenced::GetObserverSet()
{
    if (!m_pObserverSet)
    {
        m_pObserverSet = new ObserverSet(this);
        m_pObserverSet->Ref();
    }
    return m_pObserverSet;
}

void CReferenced::AddObserver(Observer* observer)
{
    GetObserverSet()->AddObserver(observer);
}

void CReferenced::RemoveObserver(Observer* observer)
{
    GetObserverSet()->RemoveObserver(observer);
}

void CReferenced::SignalObservers(bool signal, bool destroy)
{
    if (signal && m_pObserverSet)
        m_pObserverSet->Signal(this);
    if (destroy)
        delete this;
}

ObserverSet::ObserverSet(CReferenced* observed) : m_pObserved(observed) {}

ObserverSet::~ObserverSet() {}

ref_ptr<CReferenced> ObserverSet::LockObserved() const
{
    if (!m_pObserved)
        return ref_ptr<CReferenced>();
    CReferenced* object = m_pObserved;
    if (object->Ref() == 1)
    {
        // The count had reached 0: the object is dying and must not be revived.
        object->UnrefNoDelete();
        return ref_ptr<CReferenced>();
    }
    ref_ptr<CReferenced> held(object);
    object->UnrefNoDelete();
    return held;
}

void ObserverSet::Signal(void* object)
{
    // An observer may remove itself or others while it is told, so the walk
    // looks the next one up afresh each time instead of holding an iterator.
    auto it = m_observers.begin();
    while (it != m_observers.end())
    {
        Observer* observer = *it;
        observer->objectDeleted(object);
        it = m_observers.upper_bound(observer);
    }
    m_observers.clear();
    m_pObserved = nullptr;
}
