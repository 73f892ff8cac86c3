#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarn::bench {

// `count` statements as the applications of a shop send them, in random order. Each has one of a
// few dozen forms, and its own names, numbers, texts and lengths of lists. They are the same on
// every call and on every machine.
std::vector<std::string> VariedStatements(std::size_t count);

}  // namespace tarn::bench
