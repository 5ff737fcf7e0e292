#pragma once

#include "base/sync.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace vsccam {

/// Values that outlive the camera objects: one per model, shared by all cameras of it.
template <class T> class PerModel {
  public:
    /// The value of the model with this product ID; `setUp` is called on it the first time.
    template <class SetUp> T &Of(uint16_t productId, SetUp setUp)
    {
        const SectionLock lock(m_section);
        Entry *entry = std::ranges::find_if(m_entries, [productId](const Entry &e) {
            return e.productId == productId || e.productId == 0;
        });
        if (entry->productId == 0) {
            entry->productId = productId;
            setUp(entry->value);
        }
        return entry->value;
    }

    T &Of(uint16_t productId)
    {
        return Of(productId, [](T &) {});
    }

  private:
    struct Entry {
        uint16_t productId = 0; // 0: not in use
        T value{};
    };

    CriticalSection m_section; // the values take care of themselves
    /// More than there are models.
    std::array<Entry, 64> m_entries VSC_GUARDED_BY(m_section){};
};

} // namespace vsccam
