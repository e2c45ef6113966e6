// Memory for element blocks, shared by the provider's arrays and the module's mirrors.
//
// Large blocks are placed on huge-page boundaries and the kernel is asked to back them
// with huge pages: they are filled and walked in full, and random access into them then
// misses the address cache far less often.
//
// The most recently freed blocks of a middle size are kept for the next request of about
// their size. An array holds two blocks (the library's and the mirror), so a program that
// makes and drops arrays of a few hundred kilobytes to a few megabytes returns twice
// as much to the allocator as one block would; past its trim threshold the allocator
// gives it back to the system, and every new array then faults its pages in again. The
// kept blocks are reused warm instead. Each shared library that includes this header
// keeps its own few blocks, at most kKeptBytes in all.
#pragma once

#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <utility>

#include <malloc.h>
#include <sys/mman.h>

namespace kerova::data::blocks {

// Under the address sanitizer every block goes back at once, so that a use after free
// is still caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr bool kKeepBlocks = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kKeepBlocks = false;
#else
constexpr bool kKeepBlocks = true;
#endif
#else
constexpr bool kKeepBlocks = true;
#endif

constexpr std::size_t kHugePageSize = std::size_t{2} << 20;
constexpr std::size_t kHugeBlockMin = std::size_t{4} << 20;
constexpr std::size_t kKeptMin = std::size_t{64} << 10;   // smaller blocks are the allocator's business
constexpr std::size_t kKeptBytes = std::size_t{32} << 20;  // all kept blocks together

class KeptBlocks {
public:
    KeptBlocks() = default;
    KeptBlocks(const KeptBlocks&) = delete;
    KeptBlocks& operator=(const KeptBlocks&) = delete;
    ~KeptBlocks() {
        for (Entry& entry : m_entries) std::free(entry.data);
    }

    // A kept block of at least `bytes` and less than twice that, or null.
    void* take(std::size_t bytes) noexcept {
        if (!kKeepBlocks || bytes < kKeptMin) return nullptr;
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (Entry& entry : m_entries) {
            if (entry.data && entry.bytes >= bytes && entry.bytes / 2 < bytes) {
                m_total -= entry.bytes;
                return std::exchange(entry.data, nullptr);
            }
        }
        return nullptr;
    }

    // Keeps `data` if it fits the budget, in place of the oldest kept block, which is freed.
    void give(void* data) noexcept {
        const std::size_t bytes = malloc_usable_size(data);
        void* evicted = data;
        if (kKeepBlocks && bytes >= kKeptMin && bytes <= kKeptBytes) {
            const std::lock_guard<std::mutex> lock(m_mutex);
            Entry& slot = m_entries[m_next];
            m_next = (m_next + 1) % m_entries.size();
            if (slot.data) m_total -= slot.bytes;
            evicted = slot.data;
            slot = {data, bytes};
            m_total += bytes;
            for (Entry& entry : m_entries) {  // over budget: the others go
                if (m_total <= kKeptBytes) break;
                if (entry.data && entry.data != data) {
                    std::free(entry.data);
                    m_total -= entry.bytes;
                    entry.data = nullptr;
                }
            }
        }
        std::free(evicted);
    }

private:
    struct Entry {
        void* data = nullptr;
        std::size_t bytes = 0;
    };
    std::mutex m_mutex;
    std::array<Entry, 2> m_entries{};
    std::size_t m_next = 0;
    std::size_t m_total = 0;
};

// Never destroyed: a block may still be released while the process exits.
inline KeptBlocks& keptBlocks() noexcept {
    static KeptBlocks* const kept = new KeptBlocks;
    return *kept;
}

// Memory for a block of `bytes` (zeroed if asked), released with release(); null if it
// can't be had.
inline void* allocate(std::size_t bytes, bool zeroed) noexcept {
    if (void* data = keptBlocks().take(bytes)) {
        if (zeroed) std::memset(data, 0, bytes);
        return data;
    }
    if (bytes < kHugeBlockMin) return zeroed ? std::calloc(bytes, 1) : std::malloc(bytes);
    void* data = nullptr;
    if (posix_memalign(&data, kHugePageSize, bytes) != 0) return nullptr;
    madvise(data, bytes, MADV_HUGEPAGE);  // advice: refused, the block is as good
    if (zeroed) std::memset(data, 0, bytes);
    return data;
}

inline void release(void* data) noexcept {
    if (data) keptBlocks().give(data);
}

}  // namespace kerova::data::blocks
