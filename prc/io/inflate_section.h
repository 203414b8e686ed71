#pragma once
// zlib inflation of one PRC section, with the bounded growth of the output buffer.

#include <cstdint>
#include <vector>

namespace prc {

// The buffer is not grown further once it exceeds this size (512 MiB - 1).
constexpr uint64_t kInflateSafetyLimit = 0x1FFFFFFF;

std::vector<uint8_t> inflateSection(const uint8_t* section, uint64_t length);

// The same with another bound in place of kInflateSafetyLimit, so that the
// growth rule can be exercised without half a gigabyte of output.
std::vector<uint8_t> inflateSection(const uint8_t* section, uint64_t length, uint64_t safetyLimit);

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

}  // namespace prc
