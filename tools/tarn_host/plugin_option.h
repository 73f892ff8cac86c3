#pragma once

#include <string>

#include "tarn_host/command_line.h"

namespace tarn::host {

// The path of a library that belongs to this tool: `file` in the executable's own folder, in ../lib
// or in the installed folder of libraries, whichever exists first. Otherwise `file` itself, which
// the dynamic loader searches for. Thread-safe.
std::string FileOfTheTool(const std::string& file);

// Adds --plugin PATH to `command`. `path` stays empty if the option is not given; ChosenPlugin
// takes it. Requires: `path` outlives the parsing.
void AddPluginOption(Command& command, std::string& path);

// The path to hand to the dynamic loader for the value of --plugin. An empty value means the tool's
// own plug-in. A name without a slash means the file in the current folder if it exists, and a
// library for the loader to search otherwise.
std::string ChosenPlugin(const std::string& path);

}  // namespace tarn::host
