#pragma once

#include "base/sync.h"

#include <utility>

namespace vsccam {

/// A value that several threads use, reachable only with its lock held.
template <class T> class Guarded {
  public:
    Guarded() = default;
    explicit Guarded(T value) : m_value(std::move(value)) {}
    Guarded(const Guarded &) = delete;
    Guarded &operator=(const Guarded &) = delete;

    /// What `use` makes of the value, which nobody else sees or changes meanwhile. Nothing that
    /// waits may happen in there: no request to a camera, and no other lock.
    template <class Use> decltype(auto) With(Use use)
    {
        const SectionLock lock(m_section);
        return use(m_value);
    }

    /// A copy, all of one moment.
    T Now() const
    {
        const SectionLock lock(m_section);
        return m_value;
    }

  private:
    mutable CriticalSection m_section;
    T m_value VSC_GUARDED_BY(m_section){};
};

} // namespace vsccam
