#include "base/Referenced.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{

// Records its own death so tests can see exactly when an object goes.
struct Tracked : public CReferenced
{
    explicit Tracked(int* deaths = nullptr) : m_pDeaths(deaths) {}
    ~Tracked() override
    {
        if (m_pDeaths)
            ++*m_pDeaths;
    }
    int* m_pDeaths;
    ref_ptr<Tracked> m_child;
};

struct Derived : public Tracked
{
    using Tracked::Tracked;
};

struct RecordingObserver : public Observer
{
    void objectDeleted(void* object) override
    {
        calls.push_back(object);
        order.push_back(this);
    }
    std::vector<void*> calls;
    static std::vector<Observer*> order;
};
std::vector<Observer*> RecordingObserver::order;

TEST(RefPtr, NewObjectStartsAtZeroAndDropDeletes)
{
    int deaths = 0;
    Tracked* raw = new Tracked(&deaths);
    EXPECT_EQ(0, raw->GetRefCount());
    ref_ptr<Tracked> p(raw);
    EXPECT_EQ(1, raw->GetRefCount());
    {
        ref_ptr<Tracked> copy = p;
        EXPECT_EQ(2, raw->GetRefCount());
        EXPECT_TRUE(copy == p);
    }
    EXPECT_EQ(1, raw->GetRefCount());
    p = nullptr;
    EXPECT_EQ(1, deaths);
    EXPECT_FALSE(p);
}

TEST(RefPtr, AssignmentReferencesNewBeforeReleasingOld)
{
    int deaths = 0;
    ref_ptr<Tracked> parent = new Tracked(&deaths);
    parent->m_child = new Tracked(&deaths);
    Tracked* child = parent->m_child.get();
    // The child lives only through the parent; releasing the parent first
    // would delete the child before it is referenced.
    parent = child;
    EXPECT_EQ(1, deaths);
    ASSERT_EQ(child, parent.get());
    EXPECT_EQ(1, child->GetRefCount());

    // Assigning the pointer it already holds changes nothing.
    parent = parent.get();
    EXPECT_EQ(1, child->GetRefCount());
    ref_ptr<Tracked>& self = parent;
    parent = self;
    EXPECT_EQ(1, child->GetRefCount());
    EXPECT_EQ(1, deaths);
}

TEST(RefPtr, UpcastComparisonsAndMove)
{
    int deaths = 0;
    ref_ptr<Derived> d = new Derived(&deaths);
    ref_ptr<Tracked> t = d;
    ref_ptr<CReferenced> base;
    base = d;
    EXPECT_EQ(3, d->GetRefCount());
    EXPECT_TRUE(t == d);
    EXPECT_TRUE(base == t);
    EXPECT_TRUE(base == d.get());
    EXPECT_TRUE(d.get() == base);
    EXPECT_FALSE(base != d);
    EXPECT_TRUE(base != nullptr);

    ref_ptr<Tracked> moved(std::move(t));
    EXPECT_FALSE(t);
    EXPECT_EQ(3, d->GetRefCount());
    ref_ptr<Tracked> other = new Tracked(&deaths);
    other = std::move(moved); // releases the second object
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(3, d->GetRefCount());
    EXPECT_EQ(&*other, d.get());
    base = nullptr;
    other = nullptr;
    EXPECT_EQ(1, d->GetRefCount());
    d = nullptr;
    EXPECT_EQ(2, deaths);
}

TEST(Referenced, UnrefAtOneSignalsEachObserverOnceThenDeletes)
{
    int deaths = 0;
    RecordingObserver a, b;
    Tracked* obj = new Tracked(&deaths);
    obj->AddObserver(&a);
    obj->AddObserver(&b);
    obj->Ref();
    EXPECT_EQ(0, obj->Unref());
    EXPECT_EQ(1, deaths);
    // Once from Unref; the destructor then found the set empty.
    ASSERT_EQ(1u, a.calls.size());
    ASSERT_EQ(1u, b.calls.size());
    EXPECT_EQ(static_cast<void*>(obj), a.calls[0]);
    EXPECT_EQ(static_cast<void*>(obj), b.calls[0]);

    // UnrefNoDelete at one leaves the object alive.
    Tracked* kept = new Tracked(&deaths);
    kept->Ref();
    EXPECT_EQ(0, kept->UnrefNoDelete());
    EXPECT_EQ(1, deaths);
    delete kept;
    EXPECT_EQ(2, deaths);
}

TEST(Referenced, ObserversAreToldInAscendingAddressOrder)
{
    RecordingObserver obs[3];
    RecordingObserver::order.clear();
    Tracked* obj = new Tracked;
    obj->AddObserver(&obs[2]);
    obj->AddObserver(&obs[0]);
    obj->AddObserver(&obs[1]);
    ref_ptr<Tracked> p(obj);
    p = nullptr;
    ASSERT_EQ(3u, RecordingObserver::order.size());
    EXPECT_EQ(&obs[0], RecordingObserver::order[0]);
    EXPECT_EQ(&obs[1], RecordingObserver::order[1]);
    EXPECT_EQ(&obs[2], RecordingObserver::order[2]);
}

TEST(Referenced, AddTwiceKeepsOneRemovedHearsNothingAndRemoveUnknownChangesNothing)
{
    RecordingObserver a, removed, unknown;
    ref_ptr<Tracked> obj = new Tracked;
    obj->AddObserver(&a);
    obj->AddObserver(&a);
    obj->AddObserver(&removed);
    obj->RemoveObserver(&removed);
    ASSERT_NE(nullptr, obj->PeekObserverSet());
    EXPECT_EQ(1u, obj->PeekObserverSet()->GetObservers().size());
    obj->RemoveObserver(&unknown);
    EXPECT_EQ(1u, obj->PeekObserverSet()->GetObservers().size());
    obj = nullptr;
    EXPECT_EQ(1u, a.calls.size());
    EXPECT_TRUE(removed.calls.empty());
    EXPECT_TRUE(unknown.calls.empty());
}

// Removes another observer (or itself) while it is being told.
struct RemovingObserver : public Observer
{
    void objectDeleted(void* object) override
    {
        ++calls;
        if (victim)
            static_cast<CReferenced*>(object)->RemoveObserver(victim);
    }
    Observer* victim = nullptr;
    int calls = 0;
};

TEST(Referenced, ObserverRemovalWhileNotifying)
{
    RemovingObserver obs[4];
    Tracked* obj = new Tracked;
    for (auto& o : obs)
        obj->AddObserver(&o);
    obs[0].victim = &obs[0]; // removes itself
    obs[1].victim = &obs[2]; // removes one still to be told
    ref_ptr<Tracked> p(obj);
    p = nullptr;
    EXPECT_EQ(1, obs[0].calls);
    EXPECT_EQ(1, obs[1].calls);
    EXPECT_EQ(0, obs[2].calls);
    EXPECT_EQ(1, obs[3].calls);
}

TEST(Referenced, CopyHasItsOwnCountAndNoObservers)
{
    RecordingObserver a;
    ref_ptr<Tracked> original = new Tracked;
    original->AddObserver(&a);
    original->Ref();
    Tracked copy(*original);
    EXPECT_EQ(0, copy.GetRefCount());
    EXPECT_EQ(nullptr, copy.PeekObserverSet());
    Tracked assigned;
    assigned = *original;
    EXPECT_EQ(0, assigned.GetRefCount());
    EXPECT_EQ(nullptr, assigned.PeekObserverSet());
    EXPECT_EQ(2, original->GetRefCount());
    original->UnrefNoDelete();
    EXPECT_TRUE(a.calls.empty());
}

TEST(Referenced, StackObjectTellsObserversWhenItDies)
{
    RecordingObserver a;
    WeakRef<Tracked> weak;
    {
        Tracked onStack;
        onStack.AddObserver(&a);
        weak.assign(&onStack);
        EXPECT_EQ(&onStack, weak.get());
        EXPECT_EQ(0, onStack.GetRefCount());
    }
    EXPECT_EQ(1u, a.calls.size());
    EXPECT_FALSE(weak.isAlive());
    EXPECT_EQ(nullptr, weak.get());
}

TEST(WeakRefTest, DiesWithItsObjectAndKeepsTheSetAlive)
{
    int deaths = 0;
    ref_ptr<Tracked> obj = new Tracked(&deaths);
    WeakRef<Tracked> weak(obj.get());
    ObserverSet* set = weak.getObserverSet();
    ASSERT_NE(nullptr, set);
    EXPECT_EQ(obj->GetObserverSet(), set);
    EXPECT_EQ(2, set->GetRefCount()); // the object's and the weak reference's
    EXPECT_EQ(obj.get(), weak.get());
    EXPECT_EQ(1, obj->GetRefCount()); // weak references add no count

    ref_ptr<Tracked> locked = weak.lock();
    EXPECT_EQ(obj, locked);
    EXPECT_EQ(2, obj->GetRefCount());
    locked = nullptr;
    {
        ref_ptr<CReferenced> held = set->LockObserved();
        EXPECT_EQ(obj.get(), held.get());
        EXPECT_EQ(2, obj->GetRefCount());
    }
    EXPECT_EQ(1, obj->GetRefCount());

    obj = nullptr;
    EXPECT_EQ(1, deaths);
    EXPECT_EQ(set, weak.getObserverSet());
    EXPECT_EQ(1, set->GetRefCount());
    EXPECT_EQ(nullptr, set->GetObserved());
    EXPECT_FALSE(weak.isAlive());
    EXPECT_EQ(nullptr, weak.get());
    EXPECT_FALSE(weak.lock());
    EXPECT_FALSE(set->LockObserved());

    // A copy taken from the dead reference holds the set but no pointer.
    WeakRef<Tracked> copy(weak);
    EXPECT_EQ(set, copy.getObserverSet());
    EXPECT_EQ(nullptr, copy.rawPointer());
    WeakRef<Tracked> assigned;
    assigned = weak;
    EXPECT_EQ(nullptr, assigned.rawPointer());
}

TEST(WeakRefTest, ReassignAndNull)
{
    ref_ptr<Tracked> a = new Tracked;
    ref_ptr<Tracked> b = new Tracked;
    WeakRef<Tracked> weak(a.get());
    ObserverSet* setA = a->PeekObserverSet();
    EXPECT_EQ(2, setA->GetRefCount());
    weak = b.get();
    EXPECT_EQ(1, setA->GetRefCount()); // the old set was dropped
    EXPECT_EQ(b.get(), weak.get());
    weak.assign(nullptr);
    EXPECT_EQ(nullptr, weak.getObserverSet());
    EXPECT_EQ(nullptr, weak.get());
    EXPECT_EQ(1, b->PeekObserverSet()->GetRefCount());
}

// Tries to lock the dying object from inside the notification.
struct LockingObserver : public Observer
{
    void objectDeleted(void* object) override
    {
        CReferenced* obj = static_cast<CReferenced*>(object);
        countBefore = obj->GetRefCount();
        locked = obj->PeekObserverSet()->LockObserved().get();
        countAfter = obj->GetRefCount();
        called = true;
    }
    CReferenced* locked = reinterpret_cast<CReferenced*>(1);
    int countBefore = -1, countAfter = -1;
    bool called = false;
};

TEST(WeakRefTest, LockObservedDuringDestructionAnswersNull)
{
    int deaths = 0;
    LockingObserver lo;
    ref_ptr<Tracked> obj = new Tracked(&deaths);
    obj->AddObserver(&lo);
    WeakRef<Tracked> weak(obj.get());
    obj = nullptr;
    ASSERT_TRUE(lo.called);
    EXPECT_EQ(nullptr, lo.locked);
    EXPECT_EQ(0, lo.countBefore);
    EXPECT_EQ(0, lo.countAfter);
    EXPECT_EQ(1, deaths); // deleted once, not revived nor deleted twice
}

} // namespace
