#pragma once
// zlib inflation of one PRC section, with the bounded growth of the output buffer.

#include <cstdint>
#include <vector>

namespace prc {

// The buffer is not grown further once it exceeds this size (512 MiB - 1).
constexpr uint64_t kInflateSafetyLimit = 0x1FFFFFFF;

// The bytes of one inflated section, left in the buffer they were inflated
// into and shrunk to their size: no copy, and the part of a buffer sized
// ahead that was never written is never touched.
class InflatedSection {
public:
    InflatedSection() = default;
    explicit InflatedSection(uint64_t capacity);  // uninitialised bytes; std::bad_alloc if there is no room
    ~InflatedSection();
    InflatedSection(InflatedSection&& other) noexcept;
    InflatedSection& operator=(InflatedSection&& other) noexcept;

    const uint8_t* data() const { return data_; }
    uint8_t* data() { return data_; }
    uint64_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    std::vector<uint8_t> toVector() const { return {data_, data_ + size_}; }

    void resize(uint64_t size);  // keeps the bytes that stay; new ones are uninitialised

private:
    uint8_t* data_ = nullptr;
    uint64_t size_ = 0;
};

InflatedSection inflateSection(const uint8_t* section, uint64_t length);

// The same with another bound in place of kInflateSafetyLimit, so that the
// growth rule can be exercised without half a gigabyte of output.
InflatedSection inflateSection(const uint8_t* section, uint64_t length, uint64_t safetyLimit);

// The output that the inflations of one decode pass may produce together:
// twice the most that the growth rule lets one section take. The header may
// name the same bomb from any number of file structures, and each would be
// inflated, and read, anew: the limit of one section bounds nothing then.
constexpr uint64_t kPassInflationBudget = 4 * (kInflateSafetyLimit + 1);  // 2 GiB

// While a budget exists, every inflateSection of its thread draws on it and
// on the budgets around it; an inflation that would overdraw one fails with
// the safety-limit message, and so does every later one.
class InflationBudget {
public:
    explicit InflationBudget(uint64_t bytes = kPassInflationBudget);
    ~InflationBudget();
    InflationBudget(const InflationBudget&) = delete;
    InflationBudget& operator=(const InflationBudget&) = delete;

    uint64_t left() const;  // the least that this budget and those around it have left
    void draw(uint64_t bytes);

private:
    uint64_t left_;
    InflationBudget* outer_;
};

// While a memo exists, an inflation of the same bytes as one that already
// exceeded the safety limit fails at once, as it would again: a header that
// names one bomb from many file structures, read in three passes, costs one
// inflation. Only that failure is remembered; the others are cheap or depend
// on a budget.
class InflationFailureMemo {
public:
    InflationFailureMemo();
    ~InflationFailureMemo();
    InflationFailureMemo(const InflationFailureMemo&) = delete;
    InflationFailureMemo& operator=(const InflationFailureMemo&) = delete;

    bool failed(const uint8_t* section, uint64_t length, uint64_t safetyLimit) const;
    void add(const uint8_t* section, uint64_t length, uint64_t safetyLimit);

private:
    struct Failure {
        const uint8_t* section;
        uint64_t length;
        uint64_t safety_limit;
    };
    // A failure costs at least the safety limit of output, which the pass
    // budgets allow only a few times per decode: a list suffices.
    std::vector<Failure> failures_;
    InflationFailureMemo* outer_;
};

}  // namespace prc
