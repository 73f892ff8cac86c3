#include "tarn_host/plugin_option.h"

#include <filesystem>
#include <system_error>

#include "plugin/plugin.h"

namespace tarn::host {
namespace {

bool Exists(const std::filesystem::path& path) {
  std::error_code error;
  return std::filesystem::exists(path, error);
}

}  // namespace

std::string FileOfTheTool(const std::string& file) {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error) {
    // The first two are the layout of a build folder, the last that of an installed tree, which may
    // have been moved.
    for (const char* const folder : {".", "../lib", TARN_LIBRARY_FOLDER}) {
      const auto candidate = (executable.parent_path() / folder / file).lexically_normal();
      if (Exists(candidate)) return candidate.string();
    }
  }
  return file;
}

void AddPluginOption(Command& command, std::string& path) {
  command.Name("--plugin", path, "PATH", "Load this library instead of the one beside the tool");
}

std::string ChosenPlugin(const std::string& path) {
  if (path.empty()) return FileOfTheTool(kPluginFile);
  return path.find('/') == std::string::npos && Exists(path) ? "./" + path : path;
}

}  // namespace tarn::host
