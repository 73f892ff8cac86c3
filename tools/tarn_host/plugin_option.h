#pragma once

#include <string>

#include "tarn_host/command_line.h"

namespace tarn::host {

// The library that belongs to this tool: `file` beside the executable, in ../lib or in
// ../lib/<multiarch>, the first that exists. Otherwise `file` itself, for the dynamic loader to
// search.
std::string FileOfTheTool(const std::string& file);

// Adds --plugin PATH to `command`. `path` must outlive the parsing; it stays empty when the option
// is not given. Hand it to ChosenPlugin.
void AddPluginOption(Command& command, std::string& path);

// The library to load for the value of --plugin, in the dynamic loader's words: without a value the
// tool's own. A name without a slash means the file in the current folder if there is one, and the
// loader's search otherwise.
std::string ChosenPlugin(const std::string& path);

}  // namespace tarn::host
