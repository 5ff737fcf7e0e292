#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>

namespace vsccam {

/// A large buffer of zeros whose pages cost memory only once they are touched.
class ZeroedBuffer {
  public:
    explicit ZeroedBuffer(size_t size)
        : m_bytes(static_cast<uint8_t *>(std::calloc(size ? size : 1, 1))), m_size(size)
    {
        if (!m_bytes)
            throw std::bad_alloc();
    }

    uint8_t *data() const { return m_bytes.get(); }
    size_t size() const { return m_size; }
    std::span<uint8_t> First(size_t count) const { return {m_bytes.get(), count}; }

  private:
    struct Free {
        void operator()(uint8_t *bytes) const { std::free(bytes); }
    };

    std::unique_ptr<uint8_t, Free> m_bytes;
    size_t m_size;
};

} // namespace vsccam
