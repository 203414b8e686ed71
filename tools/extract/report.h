#pragma once
// The --info report: what the input holds and what became of each model.

#include <string>
#include <vector>

#include "tools/extract/input_models.h"
#include "tools/extract/model_result.h"

namespace extract {

struct Report {
    std::string input_path;
    uint64_t input_bytes = 0;
    InputKind kind = InputKind::Prc;
    std::string pdf_version;
    uint32_t page_count = 0;
    std::vector<std::string> warnings;
    std::vector<ModelResult> models;
};

std::string reportText(const Report& report);
std::string reportJson(const Report& report);

}  // namespace extract
