#pragma once
// Intrusive reference counting with death notification.
//
// CReferenced is the root of everything handed around by ref_ptr. The count is a
// plain int (not atomic): an object shared between threads needs its owners to
// serialise access. Observers hear of an object's death through its ObserverSet,
// which a WeakRef keeps alive after the object is gone, so a weak reference can
// always ask whether its object still lives.

#include <cstddef>
#include <set>
#include <utility>

class Observer;
class ObserverSet;

class CReferenced
{
public:
    CReferenced();
    // A copy is a new object: it starts with its own count of 0 and no observers.
    CReferenced(const CReferenced&);
    CReferenced& operator=(const CReferenced&) { return *this; }

    // Tells the observers (a stack object or a base subobject that dies without
    // Unref does too), then lets go of the observer set.
    virtual ~CReferenced();

    // Adds one reference and answers the new count.
    virtual int Ref();
    // Removes one reference and answers the count; at 0 the observers are told and
    // the object deletes itself.
    virtual int Unref();

    // Removes one reference without any other effect, even at 0.
    int UnrefNoDelete();

    int GetRefCount() const { return m_nRefCount; }

    // The set is made (and referenced by the object) at the first call.
    ObserverSet* GetObserverSet();
    // The set as it stands, without making one.
    ObserverSet* PeekObserverSet() const { return m_pObserverSet; }

    void AddObserver(Observer* observer);
    void RemoveObserver(Observer* observer);

    // signal: tell the observers (when a set exists); destroy: delete this.
    void SignalObservers(bool signal, bool destroy);

protected:
    int m_nRefCount;
    ObserverSet* m_pObserverSet; // holds one reference when not null
};

// Hears of the death of the objects it was added to.
class Observer
{
public:
    virtual ~Observer() {}
    // Called while the object dies, with the object's address; the object's
    // members must not be used any more.
    virtual void objectDeleted(void* /*object*/) {}
};

// The counted pointer. Taking a non-null pointer references it; letting go
// unreferences it, which deletes the object when the count reaches 0.
template <class T>
class ref_ptr
{
public:
    typedef T element_type;

    ref_ptr() : m_ptr(nullptr) {}
    ref_ptr(std::nullptr_t) : m_ptr(nullptr) {}
    ref_ptr(T* ptr) : m_ptr(ptr)
    {
        if (m_ptr)
            m_ptr->Ref();
    }
    ref_ptr(const ref_ptr& other) : m_ptr(other.m_ptr)
    {
        if (m_ptr)
            m_ptr->Ref();
    }
    template <class U>
    ref_ptr(const ref_ptr<U>& other) : m_ptr(other.get())
    {
        if (m_ptr)
            m_ptr->Ref();
    }
    ref_ptr(ref_ptr&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    ~ref_ptr()
    {
        T* old = m_ptr;
        m_ptr = nullptr;
        if (old)
            old->Unref();
    }

    ref_ptr& operator=(const ref_ptr& other) { return assign(other.m_ptr); }
    template <class U>
    ref_ptr& operator=(const ref_ptr<U>& other)
    {
        return assign(other.get());
    }
    ref_ptr& operator=(T* ptr) { return assign(ptr); }
    ref_ptr& operator=(std::nullptr_t) { return assign(nullptr); }
    ref_ptr& operator=(ref_ptr&& other) noexcept
    {
        if (this != &other)
        {
            T* old = m_ptr;
            m_ptr = other.m_ptr;
            other.m_ptr = nullptr;
            if (old)
                old->Unref();
        }
        return *this;
    }

    T* get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    T& operator*() const { return *m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }
    bool valid() const { return m_ptr != nullptr; }

    void swap(ref_ptr& other) noexcept { std::swap(m_ptr, other.m_ptr); }

private:
    // The new object is referenced before the old one is released, so assigning
    // an object that only the old one keeps alive is safe.
    ref_ptr& assign(T* ptr)
    {
        if (ptr == m_ptr)
            return *this;
        T* old = m_ptr;
        m_ptr = ptr;
        if (m_ptr)
            m_ptr->Ref();
        if (old)
            old->Unref();
        return *this;
    }

    T* m_ptr;
};

template <class T, class U>
inline bool operator==(const ref_ptr<T>& a, const ref_ptr<U>& b)
{
    return a.get() == b.get();
}
template <class T, class U>
inline bool operator!=(const ref_ptr<T>& a, const ref_ptr<U>& b)
{
    return a.get() != b.get();
}
template <class T, class U>
inline bool operator<(const ref_ptr<T>& a, const ref_ptr<U>& b)
{
    return a.get() < b.get();
}
template <class T, class U>
inline bool operator==(const ref_ptr<T>& a, const U* b)
{
    return a.get() == b;
}
template <class T, class U>
inline bool operator!=(const ref_ptr<T>& a, const U* b)
{
    return a.get() != b;
}
template <class T, class U>
inline bool operator==(const U* a, const ref_ptr<T>& b)
{
    return a == b.get();
}
template <class T, class U>
inline bool operator!=(const U* a, const ref_ptr<T>& b)
{
    return a != b.get();
}
template <class T>
inline bool operator==(const ref_ptr<T>& a, std::nullptr_t)
{
    return a.get() == nullptr;
}
template <class T>
inline bool operator!=(const ref_ptr<T>& a, std::nullptr_t)
{
    return a.get() != nullptr;
}
template <class T>
inline bool operator==(std::nullptr_t, const ref_ptr<T>& a)
{
    return a.get() == nullptr;
}
template <class T>
inline bool operator!=(std::nullptr_t, const ref_ptr<T>& a)
{
    return a.get() != nullptr;
}

// The observers of one object. It outlives the object while weak references
// hold it; after the death its observed pointer is null.
class ObserverSet : public CReferenced
{
public:
    explicit ObserverSet(CReferenced* observed);
    ~ObserverSet() override;

    // A counted reference to the object, or null when it is dead or dying.
    ref_ptr<CReferenced> LockObserved() const;

    CReferenced* GetObserved() const { return m_pObserved; }
    void AddObserver(Observer* observer) { m_observers.insert(observer); }
    void RemoveObserver(Observer* observer) { m_observers.erase(observer); }
    const std::set<Observer*>& GetObservers() const { return m_observers; }

    // Tells every observer, in ascending order of address, that the object
    // dies; then forgets them all and the object too.
    void Signal(void* object);

private:
    CReferenced* m_pObserved; // not counted
    std::set<Observer*> m_observers;
};

// A weak reference: it knows its object through the object's ObserverSet and
// holds only the set, so the object may die under it.
template <class T>
class WeakRef
{
public:
    WeakRef() : m_pObject(nullptr) {}
    explicit WeakRef(T* object) : m_pObject(nullptr) { assign(object); }
    WeakRef(const WeakRef& other) : m_pSet(other.m_pSet), m_pObject(nullptr)
    {
        m_pObject = isAlive() ? other.m_pObject : nullptr;
    }
    WeakRef& operator=(const WeakRef& other)
    {
        if (this != &other)
        {
            m_pSet = other.m_pSet;
            m_pObject = isAlive() ? other.m_pObject : nullptr;
        }
        return *this;
    }
    WeakRef& operator=(T* object)
    {
        assign(object);
        return *this;
    }

    void assign(T* object)
    {
        ObserverSet* set = object ? object->GetObserverSet() : nullptr;
        if (set != m_pSet.get())
            m_pSet = set; // references the new set before dropping the old
        m_pObject = isAlive() ? object : nullptr;
    }

    // Alive while the set exists and still holds the object.
    bool isAlive() const { return m_pSet && m_pSet->GetObserved() != nullptr; }
    // The object when alive, else null.
    T* get() const { return isAlive() ? m_pObject : nullptr; }
    // The raw pointer as stored, whatever became of the object.
    T* rawPointer() const { return m_pObject; }
    ObserverSet* getObserverSet() const { return m_pSet.get(); }

    // A counted reference to the object, or null when it is dead or dying.
    ref_ptr<T> lock() const
    {
        if (!m_pSet || !m_pObject)
            return ref_ptr<T>();
        ref_ptr<CReferenced> held = m_pSet->LockObserved();
        if (!held)
            return ref_ptr<T>();
        return ref_ptr<T>(m_pObject);
    }

private:
    ref_ptr<ObserverSet> m_pSet;
    T* m_pObject;
};
