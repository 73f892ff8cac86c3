#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tarn::bench {

// `count` statements as the applications of a shop send them, in random order: each is one of a few
// dozen forms, with names, numbers, texts, and lengths of lists of its own. The same ones on every
// call and on every machine.
std::vector<std::string> VariedStatements(std::size_t count);

}  // namespace tarn::bench
