#pragma once
// The root of every host object. Objects the host shares (parameters, images)
// are reference counted: a new object holds one reference, Use() adds one and
// Recycle() drops one, deleting the object when none is left. Objects that are
// owned outright (operators, inputs) are never recycled.
#include "host/TagList.h"

#include <atomic>
#include <string>

class Object {
public:
    Object() = default;
    virtual ~Object() = default;
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    void Use() { m_refs.fetch_add(1, std::memory_order_relaxed); }
    virtual void Recycle();
    int RefCount() const { return m_refs.load(std::memory_order_relaxed); }

    // Label (LINKS_Name) and visibility (IC_Visible) are the attributes the
    // host's user interface shows; other tags are accepted and ignored.
    virtual void SetAttrs(const TagList& tags);
    const std::string& GetLabel() const { return m_label; }
    bool IsVisible() const { return m_visible; }

protected:
    void InitAttrs(std::string label, bool visible) { m_label = std::move(label); m_visible = visible; }

private:
    std::atomic<int> m_refs{1};
    std::string m_label;
    bool m_visible = true;
};

// A reference held for the length of a scope.
template <class T>
class Ref {
public:
    Ref() = default;
    explicit Ref(T* adopted) : m_p(adopted) {}
    Ref(const Ref& o) : m_p(o.m_p) { if (m_p) m_p->Use(); }
    Ref(Ref&& o) noexcept : m_p(o.m_p) { o.m_p = nullptr; }
    Ref& operator=(Ref o) { std::swap(m_p, o.m_p); return *this; }
    ~Ref() { if (m_p) m_p->Recycle(); }
    T* get() const { return m_p; }
    T* operator->() const { return m_p; }
    T& operator*() const { return *m_p; }
    explicit operator bool() const { return m_p != nullptr; }
    T* release() { T* p = m_p; m_p = nullptr; return p; }

private:
    T* m_p = nullptr;
};
