// Reference counts, counted and weak pointers, and the observers an object
// tells when it dies.
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

// Notes each call, and may remove an observer (itself or another) or lock the
// dying object while it is told.
struct Watcher : public Observer
{
    void objectDeleted(void* object) override
    {
        CReferenced* dying = static_cast<CReferenced*>(object);
        calls.push_back(object);
        order.push_back(this);
        if (victim)
            dying->RemoveObserver(victim);
        if (lock)
        {
            countBefore = dying->GetRefCount();
            locked = dying->PeekObserverSet()->LockObserved().get();
            countAfter = dying->GetRefCount();
        }
    }
    std::vector<void*> calls;
    Observer* victim = nullptr;
    bool lock = false;
    CReferenced* locked = reinterpret_cast<CReferenced*>(1);
    int countBefore = -1, countAfter = -1;
    static std::vector<Observer*> order;
};
std::vector<Observer*> Watcher::order;

TEST(RefPtr, CountsAssignsComparesAndMoves)
{
    int deaths = 0;
    Tracked* raw = new Tracked(&deaths);
    EXPECT_EQ(0, raw->GetRefCount()); // a new object starts at zero
    ref_ptr<Tracked> p(raw);
    EXPECT_EQ(2, ref_ptr<Tracked>(p)->GetRefCount());
    EXPECT_EQ(1, raw->GetRefCount());
    // Assignment references the new object before it lets go of the old: the child
    // lives only through the parent and would go first otherwise.
    p->m_child = new Tracked(&deaths);
    Tracked* child = p->m_child.get();
    p = child;
    EXPECT_EQ(1, deaths);
    ASSERT_EQ(child, p.get());
    p = p.get();
    ref_ptr<Tracked>& self = p;
    p = self;
    EXPECT_EQ(1, child->GetRefCount());
    p = nullptr;
    EXPECT_TRUE(deaths == 2 && !p);

    ref_ptr<Derived> d = new Derived(&deaths);
    ref_ptr<Tracked> t = d;
    ref_ptr<CReferenced> base;
    base = d;
    EXPECT_EQ(3, d->GetRefCount());
    EXPECT_TRUE(t == d && base == t && base == d.get() && d.get() == base && !(base != d) && base != nullptr);
    ref_ptr<Tracked> moved(std::move(t)), other = new Tracked(&deaths);
    other = std::move(moved); // lets go of the other object
    EXPECT_TRUE(!t && deaths == 3 && d->GetRefCount() == 3 && &*other == d.get());
    base = other = d = nullptr;
    EXPECT_EQ(4, deaths);
}

TEST(Referenced, UnrefAtOneTellsEachObserverOnceInAddressOrderThenDeletesAndObserversMayLeaveWhileTold)
{
    int deaths = 0;
    Watcher w[3], removed, unknown;
    Watcher::order.clear();
    Tracked* obj = new Tracked(&deaths);
    obj->AddObserver(&w[2]);
    obj->AddObserver(&w[0]);
    obj->AddObserver(&w[0]);
    obj->AddObserver(&w[1]);
    obj->AddObserver(&removed);
    obj->RemoveObserver(&removed);
    obj->RemoveObserver(&unknown);
    EXPECT_EQ(3u, obj->PeekObserverSet()->GetObservers().size());
    obj->Ref();
    EXPECT_TRUE(obj->Unref() == 0 && deaths == 1);
    // Once from Unref; the destructor then found the set empty.
    EXPECT_EQ((std::vector<Observer*>{&w[0], &w[1], &w[2]}), Watcher::order);
    EXPECT_EQ(std::vector<void*>{obj}, w[0].calls);
    EXPECT_TRUE(removed.calls.empty() && unknown.calls.empty());

    // UnrefNoDelete at one leaves the object alive; a copy has its own count and
    // no observers.
    Tracked* kept = new Tracked(&deaths);
    kept->AddObserver(&unknown);
    kept->Ref();
    Tracked copy(*kept);
    Tracked assigned;
    assigned = *kept;
    EXPECT_TRUE(kept->UnrefNoDelete() == 0 && deaths == 1 && unknown.calls.empty());
    EXPECT_TRUE(copy.GetRefCount() == 0 && assigned.GetRefCount() == 0 && !copy.PeekObserverSet() &&
                !assigned.PeekObserverSet());
    delete kept; // a plain delete tells the observers too
    EXPECT_TRUE(deaths == 2 && unknown.calls.size() == 1u);

    // Observers may remove themselves or others while told.
    Watcher v[4];
    ref_ptr<Tracked> held = new Tracked;
    for (auto& o : v)
        held->AddObserver(&o);
    v[0].victim = &v[0]; // removes itself
    v[1].victim = &v[2]; // removes one still to be told
    held = nullptr;
    EXPECT_EQ((std::vector<size_t>{1, 1, 0, 1}),
              (std::vector<size_t>{v[0].calls.size(), v[1].calls.size(), v[2].calls.size(), v[3].calls.size()}));
}

TEST(WeakRefTest, DiesWithItsObjectAndKeepsTheSetAlive)
{
    int deaths = 0;
    ref_ptr<Tracked> obj = new Tracked(&deaths);
    WeakRef<Tracked> weak(obj.get());
    ObserverSet* set = weak.getObserverSet();
    ASSERT_EQ(obj->GetObserverSet(), set);
    // The set is the object's and the weak reference's; weak references add no count.
    EXPECT_EQ((std::vector<int>{2, 1, 2}),
              (std::vector<int>{set->GetRefCount(), obj->GetRefCount(), set->LockObserved()->GetRefCount()}));
    EXPECT_EQ(1, obj->GetRefCount());
    EXPECT_TRUE(obj.get() == weak.get() && obj == weak.lock());

    // Locking from inside the death notice answers null: the object is neither
    // revived nor deleted twice.
    Watcher locker;
    locker.lock = true;
    obj->AddObserver(&locker);
    obj = nullptr;
    EXPECT_EQ(1, deaths);
    EXPECT_EQ((std::vector<int>{0, 0}), (std::vector<int>{locker.countBefore, locker.countAfter}));
    EXPECT_EQ(nullptr, locker.locked);
    EXPECT_TRUE(set == weak.getObserverSet() && set->GetRefCount() == 1 && !set->GetObserved());
    EXPECT_FALSE(weak.isAlive() || weak.get() || weak.lock() || set->LockObserved());
    // A copy taken from the dead reference holds the set but no pointer.
    WeakRef<Tracked> copy(weak), assigned;
    assigned = weak;
    EXPECT_TRUE(set == copy.getObserverSet() && !copy.rawPointer() && !assigned.rawPointer());

    // A stack object tells its observers when it dies.
    {
        Tracked onStack;
        weak.assign(&onStack);
        EXPECT_TRUE(&onStack == weak.get() && onStack.GetRefCount() == 0);
    }
    EXPECT_FALSE(weak.isAlive());
    // Another object drops the old set; null drops it all.
    ref_ptr<Tracked> a = new Tracked, b = new Tracked;
    weak = a.get();
    ObserverSet* setA = a->PeekObserverSet();
    EXPECT_EQ(2, setA->GetRefCount());
    weak = b.get();
    EXPECT_TRUE(setA->GetRefCount() == 1 && b.get() == weak.get());
    weak.assign(nullptr);
    EXPECT_TRUE(!weak.getObserverSet() && !weak.get() && b->PeekObserverSet()->GetRefCount() == 1);
}

} // namespace
