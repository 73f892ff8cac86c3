#include "tarn_host/plugin_option.h"

#include <array>
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
    // The build folder's layout, then the installed tree's, which may have been moved.
    const std::array<const char*, 3> folders{".", "../lib", TARN_LIBRARY_FOLDER};
    for (const char* folder : folders) {
      const auto candidate = (executable.parent_path() / folder / file).lexically_normal();
      if (Exists(candidate)) return candidate.string();
    }
  }
  return file;
}

std::string LoaderPath(const std::string& library) {
  if (library.find('/') == std::string::npos && Exists(library)) return "./" + library;
  return library;
}

void AddPluginOption(Command& command, std::string& path) {
  command.Name("--plugin", path, "PATH", "Load this library instead of the one beside the tool");
}

std::string ChosenPlugin(const std::string& path) {
  return path.empty() ? FileOfTheTool(kPluginFile) : LoaderPath(path);
}

}  // namespace tarn::host
