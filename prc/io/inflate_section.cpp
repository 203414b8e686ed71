#include "prc/io/inflate_section.h"

#include <zlib.h>
#ifdef MESHDRONE_LIBDEFLATE
#include <libdeflate.h>
#endif

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace prc {

namespace {

// Ends the stream on every way out, a failed allocation while growing included.
struct InflateStream {
    z_stream zs;
    InflateStream() {
        std::memset(&zs, 0, sizeof zs);
        if (inflateInit_(&zs, "1.3.2", int(sizeof(z_stream))) != Z_OK) throw std::runtime_error("inflateInit failed");
    }
    ~InflateStream() { inflateEnd(&zs); }
    InflateStream(const InflateStream&) = delete;
    InflateStream& operator=(const InflateStream&) = delete;
};

thread_local InflationBudget* activeBudget = nullptr;
thread_local InflationFailureMemo* activeMemo = nullptr;

[[noreturn]] void safetyLimitExceeded() {
    throw std::runtime_error("inflateSection: decompression safety limit exceeded");
}

#ifdef MESHDRONE_LIBDEFLATE
struct Decompressor {
    libdeflate_decompressor* d = libdeflate_alloc_decompressor();
    ~Decompressor() { libdeflate_free_decompressor(d); }
    Decompressor(const Decompressor&) = delete;
    Decompressor& operator=(const Decompressor&) = delete;
    Decompressor() = default;
};

// libdeflate inflates a whole stream in one call, two to three times as fast
// as zlib. Built with third_party/libdeflate's patch, it refuses every stream
// that zlib refuses (it reads no more than zlib, and a refusal only costs the
// time of the zlib run after it); but it can neither grow its buffer nor tell
// zlib's messages or the bytes zlib writes before it fails. So it
// gets the first buffer of the growth rule, and only an output that ends
// strictly inside that buffer and inside the pass's budget is taken from it:
// zlib, given the same room, ends in its first call with the same bytes. Every
// other case (a failure, a full buffer, a budget that could run out) is
// inflated again by zlib, which then fails or grows exactly as the rule says.
bool inflateAtOnce(const uint8_t* section, uint64_t length, InflationBudget* budget, InflatedSection& out) {
    const uint64_t capacity = out.size();
    if (capacity > 0xFFFFFFFFu || (budget && budget->left() <= capacity)) return false;
    const Decompressor decompressor;
    if (!decompressor.d) return false;
    size_t consumed = 0, produced = 0;  // bytes after the stream's end are ignored, as zlib ignores them
    const libdeflate_result rc = libdeflate_zlib_decompress_ex(decompressor.d, section, uInt(length), out.data(),
                                                               size_t(capacity), &consumed, &produced);
    if (rc != LIBDEFLATE_SUCCESS || produced >= capacity) return false;
    if (budget) budget->draw(produced);
    out.resize(produced);
    return true;
}

#endif

}  // namespace

InflatedSection::InflatedSection(uint64_t capacity) {
    resize(capacity);
}

InflatedSection::~InflatedSection() { std::free(data_); }

InflatedSection::InflatedSection(InflatedSection&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

InflatedSection& InflatedSection::operator=(InflatedSection&& other) noexcept {
    std::free(data_);
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
    return *this;
}

void InflatedSection::resize(uint64_t size) {
    // realloc keeps the block when it shrinks (a large one gives its tail
    // pages back); a size of zero keeps one byte so that data() stays valid.
    void* resized = std::realloc(data_, size_t(std::max<uint64_t>(size, 1)));
    if (!resized) throw std::bad_alloc();
    data_ = static_cast<uint8_t*>(resized);
    size_ = size;
}

InflationBudget::InflationBudget(uint64_t bytes) : left_(bytes), outer_(activeBudget) { activeBudget = this; }

InflationBudget::~InflationBudget() { activeBudget = outer_; }

uint64_t InflationBudget::left() const { return outer_ ? std::min(left_, outer_->left()) : left_; }

void InflationBudget::draw(uint64_t bytes) {
    left_ -= std::min(left_, bytes);
    if (outer_) outer_->draw(bytes);
}

InflationFailureMemo::InflationFailureMemo() : outer_(activeMemo) { activeMemo = this; }

InflationFailureMemo::~InflationFailureMemo() { activeMemo = outer_; }

bool InflationFailureMemo::failed(const uint8_t* section, uint64_t length, uint64_t safetyLimit) const {
    for (const Failure& f : failures_)
        if (f.section == section && f.length == length && f.safety_limit == safetyLimit) return true;
    return false;
}

void InflationFailureMemo::add(const uint8_t* section, uint64_t length, uint64_t safetyLimit) {
    failures_.push_back({section, length, safetyLimit});
}

InflatedSection inflateSection(const uint8_t* section, uint64_t length) {
    return inflateSection(section, length, kInflateSafetyLimit);
}

InflatedSection inflateSection(const uint8_t* section, uint64_t length, uint64_t safetyLimit) {
    // Eight times the input plus a page covers most sections in one go. PRC
    // sections are bit-packed and rarely shrink by more than a third under
    // zlib, so most of that buffer is never written: it stays uninitialised
    // (untouched pages cost no memory) and is shrunk to the bytes written.
    InflationFailureMemo* const memo = activeMemo;
    if (memo && memo->failed(section, length, safetyLimit)) safetyLimitExceeded();
    uint64_t capacity = length * 8 + 4096;
    InflationBudget* const budget = activeBudget;
    InflatedSection out(capacity);
#ifdef MESHDRONE_LIBDEFLATE
    if (inflateAtOnce(section, length, budget, out)) return out;
#endif
    InflateStream stream;
    z_stream& zs = stream.zs;
    zs.next_in = const_cast<Bytef*>(section);
    zs.avail_in = uInt(length);  // the format hands zlib a 32-bit count
    uint64_t used = 0;
    for (;;) {
        if (used == capacity) {
            if (capacity > safetyLimit) {
                if (memo) memo->add(section, length, safetyLimit);
                safetyLimitExceeded();
            }
            capacity = used * 2;
            out.resize(capacity);
        }
        zs.next_out = out.data() + used;
        uint64_t left = capacity - used;
        if (budget) {  // output only while the pass may still have some
            if (budget->left() == 0) safetyLimitExceeded();
            left = std::min(left, budget->left());
        }
        const uInt room = uInt(left > 0xFFFFFFFFu ? 0xFFFFFFFFu : left);
        zs.avail_out = room;
        const int rc = inflate(&zs, Z_NO_FLUSH);
        if (unsigned(rc) > unsigned(Z_STREAM_END))
            throw std::runtime_error(std::string("inflate failed: ") + (zs.msg ? zs.msg : "?"));
        used += room - zs.avail_out;
        if (budget) budget->draw(room - zs.avail_out);
        if (rc == Z_STREAM_END) {
            out.resize(used);
            return out;
        }
    }
}

}  // namespace prc
