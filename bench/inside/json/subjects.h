// SPDX-License-Identifier: MIT
// Each registers one subject's benchmarks. Peers have theirs if their headers are
// installed.
#pragma once

#include <vector>

#include "json/inputs.h"

void add_zedipc(const std::vector<Input>& inputs);
void add_floor(const std::vector<Input>& inputs);
void add_nlohmann(const std::vector<Input>& inputs);
void add_rapidjson(const std::vector<Input>& inputs);
void add_jsoncpp(const std::vector<Input>& inputs);
