// Tests the built tarn_host as a person runs it, on good and bad input.
#include <elf.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "sql/errors.h"
#include "support/case_file.h"
#include "support/surroundings.h"
#include "support/tool.h"

namespace tarn::test {
namespace {

using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

class ToolRun : public testing::TestWithParam<CaseRow> {};

// The command line of a terminal of `columns` columns: its words for a shell, and standard input.
std::vector<std::string> OnATerminal(const std::string& columns,
                                     const std::vector<std::string>& words) {
  std::string command = "stty cols " + columns + ";";
  for (const std::string& word : words) command += " '" + word + "'";
  return {"/usr/bin/script", "-qec", command + " <input", "/dev/null"};
}

TEST_P(ToolRun, EndsAsItsRowSays) {
  const TemporaryFolder folder;
  std::filesystem::copy(TARN_CASES "/tool", folder.Path(""));
  const std::string key(64, 'a');
  folder.Write("some.key", key);
  folder.Write("exposed.key", key, 0644);
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), S_IRWXU), 0);
  const CaseTexts& texts = GetParam().texts;
  folder.Write("input", texts.at(0));
  RunOptions options{
      .input = texts.at(0),
      .environment = {"TARN_SYS_CONF=sys.json", "TARN_KEY_FILE=some.key", "APP_CONF_FILE=app.json",
                      "TARN_PROC_ID=4071", "TARN_PROC_HANDLE=70000", "TARN_LOG_LEVEL=off",
                      "TERM=xterm", "NO_COLOR="},
      .folder = folder.Path("")};
  std::vector<std::string> arguments{"timeout", "20", TARN_HOST_PATH};
  std::string columns;
  std::istringstream words(GetParam().label);
  std::string word;
  int exit_code = -1;
  words >> word >> exit_code;
  while (words >> word) {
    const bool variable = arguments.size() == 3 && word.find('=') != std::string::npos;
    if (word.starts_with("@tty")) {
      columns = word.substr(4);
      continue;
    }
    // A row writes an empty argument as a shell would.
    if (word == "''") word.clear();
    if (word == "@plugin") word = TARN_PLUGIN_PATH;
    if (word == "@wrong") word = TARN_WRONG_PLUGIN_PATH;
    (variable ? options.environment : arguments).push_back(Unescaped(word));
  }
  if (!columns.empty()) {
    arguments = OnATerminal(columns, arguments);
    options.input.clear();
  }
  RunResult result = RunProgram(arguments, options);
  if (!columns.empty()) std::erase(result.output, '\r');
  EXPECT_EQ(result.exit_code, exit_code);
  EXPECT_THAT(result.output, IsLike(texts.at(1)));

  const auto begins_line = [](const std::string& it) { return it.starts_with("tarn_host: "); };
  const auto reasons = std::ssize(texts) - 2;
  const auto lines =
      exit_code == 0 || reasons == 0
          ? reasons
          : std::max<std::ptrdiff_t>(1, std::count_if(texts.begin() + 2, texts.end(), begins_line));
  EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), lines);
  EXPECT_TRUE(exit_code == 0 || reasons == 0 || begins_line(result.errors));
  EXPECT_THAT(result.errors, Not(HasSubstr("top secret")));
  for (std::size_t i = 2; i < texts.size(); ++i) EXPECT_THAT(result.errors, HasSubstr(texts[i]));
}

INSTANTIATE_TEST_SUITE_P(Cases, ToolRun, testing::ValuesIn(ReadCases("tool.txt")), CaseName);

constexpr int kFailed = 1;
constexpr int kTrouble = 2;

struct Pipe {
  explicit Pipe(int flags = 0) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | flags) != 0) throw std::runtime_error("pipe2");
    read_end.emplace(ends[0]);
    write_end.emplace(ends[1]);
  }
  // Writes `bytes` and waits until they were read.
  void Write(const std::string& bytes) const {
    ASSERT_EQ(write(write_end->Get(), bytes.data(), bytes.size()), std::ssize(bytes));
    int unread = 1;
    for (int round = 0; unread > 0 && round < 10'000; ++round) {
      usleep(1000);
      ioctl(read_end->Get(), FIONREAD, &unread);
    }
    ASSERT_EQ(unread, 0);
  }

  std::optional<OwnedFd> read_end;
  std::optional<OwnedFd> write_end;
};

TEST(Tool, ReportsUnwritableOutput) {
  const OwnedFd full(open("/dev/full", O_WRONLY | O_CLOEXEC));
  for (const char* command : {"normalize", "shapes", "trace", "check", "--help"}) {
    const RunResult result = Tool({command}, {.input = "a", .output_fd = full.Get()});
    EXPECT_EQ(result.errors, "tarn_host: cannot write standard output: No space left on device\n");
    EXPECT_EQ(result.exit_code, kTrouble) << command;
  }
}

TEST(Tool, EndsInSilenceIfTheReaderHasGone) {
  Pipe output;
  output.read_end.reset();
  const RunResult result =
      Tool({"normalize"}, {.input = "a", .output_fd = output.write_end->Get()});
  EXPECT_EQ(result.errors, "");
  EXPECT_TRUE(result.ended_by_signal);
  EXPECT_EQ(result.exit_code, 128 + SIGPIPE);
}

// No file that the tool opens may get the number of a closed standard stream.
TEST(Tool, ReportsClosedStreams) {
  const auto run = [](const std::string& command) {
    return RunProgram({"/bin/sh", "-c", "\"$0\" " + command, TARN_HOST_PATH});
  };
  EXPECT_EQ(run("shapes <&-").errors, "tarn_host: standard input: Bad file descriptor\n");
  EXPECT_EQ(run("map 0 >&-").errors,
            "tarn_host: cannot write standard output: Bad file descriptor\n");
  EXPECT_EQ(run("shapes no-such-file 2>&-").exit_code, kTrouble);
}

TEST(Trace, RefusesMoreThanOneMebibyte) {
  const std::string longest(std::size_t{1} << 20U, ' ');
  EXPECT_EQ(Tool({"trace"}, {.input = longest}).exit_code, 0);
  const RunResult result = Tool({"trace"}, {.input = longest + ' '});
  EXPECT_EQ(result.exit_code, kTrouble);
  EXPECT_EQ(result.errors, "tarn_host: trace: standard input holds more than 1 MiB\n");
}

TEST(Normalize, TakesStatementsLongerThanABlock) {
  const std::string word(std::size_t{1} << 20U, 'a');
  const RunResult result = Tool({"normalize", "--input=lines", "--max-statement=1"},
                                {.input = word + "\nb\n" + word + "a\nc"});
  EXPECT_EQ(result.output, word + "\nb\nc\n");
  EXPECT_EQ(result.exit_code, kFailed);
}

// Runs the manual's commands for several processes as a person would type them.
TEST(Shapes, AddUpReportsAsTheManualSays) {
  std::ifstream manual(TARN_MANUAL);
  std::vector<std::string> commands;
  const std::string dollar = ".Dl $ ";
  for (std::string line; std::getline(manual, line) && commands.size() < 2;) {
    if (line.starts_with(dollar + "parallel") || commands.size() == 1) {
      commands.push_back(line.substr(dollar.size()));
    }
  }
  ASSERT_EQ(commands.size(), 2);
  const TemporaryFolder folder;
  for (int number = 0; number < 8; ++number) {
    const std::string digit = std::to_string(number);
    folder.Write(digit + ".log", "# Query_time: 0." + digit + "\nselect " + digit + ";\n");
  }
  const auto run = [&folder](const std::string& command) {
    const std::string path = std::filesystem::path(TARN_HOST_PATH).parent_path();
    return RunProgram(
        {"/bin/sh", "-c", command},
        {.environment = {"PATH=" + path + ":/usr/bin:/bin", "HOME=" + folder.Path("")},
         .folder = folder.Path("")});
  };
  EXPECT_EQ(run(commands[0]).exit_code, 0);
  const RunResult added = run(commands[1]);
  EXPECT_THAT(added.output, HasSubstr("8 statements, 1 shape\n"));
  EXPECT_EQ(added.errors, "");
  const std::string of_logs = "tarn_host shapes --input=slowlog ";
  EXPECT_EQ(added.output, run(of_logs + "*.log").output);
  // The order does not matter to the byte.
  EXPECT_EQ(run(of_logs + "--json [4-7].json [0-3].log").output,
            run(of_logs + "--json *.log").output);
}

// The process number that the wrong plug-in wrote to `file`; 0 if `tool` ends first.
pid_t NumberIn(const std::string& file, const RunningProgram& tool) {
  pid_t number = 0;
  while (number == 0 && tool.Running()) std::ifstream(file) >> number;
  return number;
}

// Whether that process, which is no child of this one, ends.
bool Ends(pid_t process) {
  for (int round = 0; round < 1000; ++round) {
    std::ifstream status("/proc/" + std::to_string(process) + "/stat");
    std::string state;
    for (int field = 0; field < 3; ++field) status >> state;
    // A zombie has ended, but its parent has not waited for it.
    if (!status || state == "Z") return true;
    usleep(10'000);
  }
  return false;
}

TEST(Check, KeepsItsStreamsFromTheLibraryAndEndsItsProcesses) {
  const TemporaryFolder folder;
  const std::string file = folder.Path("number");
  RunningProgram tool({"timeout", "20", "/bin/sh", "-c", "\"$0\" check \"$1\" 2>&1 | cat",
                       TARN_HOST_PATH, TARN_WRONG_PLUGIN_PATH},
                      {.environment = {"WRONG_PLUGIN_DOES=fork", "WRONG_PLUGIN_FILE=" + file}});
  const RunResult result = tool.Wait();
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_THAT(result.output, AllOf(Not(HasSubstr("everything")), HasSubstr("FAIL  unloads")));
  pid_t number = 0;
  std::ifstream(file) >> number;
  // The tool may have ended it before it could write.
  EXPECT_TRUE(number == 0 || Ends(number));
}

TEST(Check, WaitsForNoLibraryForEver) {
  const TemporaryFolder folder;
  // The dynamic loader would open this FIFO before any code of the library runs.
  const std::string plugin = folder.Path("libtarn_interface_for_vesta.so");
  std::filesystem::copy_file(TARN_PLUGIN_PATH, plugin);
  ASSERT_EQ(mkfifo(folder.Path("libtarn_platform_standin.so").c_str(), S_IRWXU), 0);
  for (const std::string& library : {plugin, std::string(TARN_WRONG_PLUGIN_PATH)}) {
    const RunResult result = Tool(
        {"check", library, "--timeout=1"},
        {.environment = {"WRONG_PLUGIN_DOES=stay", "WRONG_PLUGIN_FILE=" + folder.Path("number")}});
    EXPECT_EQ(result.exit_code, kFailed);
    EXPECT_THAT(result.output,
                EndsWith("FAIL  ends in time: still running after 1 s (see --timeout)\n"));
  }
}

TEST(Check, EndsTheLibrarysProcessToo) {
  const TemporaryFolder folder;
  for (const int signal : {SIGINT, SIGKILL}) {
    const std::string file = folder.Path(std::to_string(signal));
    RunningProgram tool({TARN_HOST_PATH, "check", TARN_WRONG_PLUGIN_PATH},
                        {.environment = {"WRONG_PLUGIN_DOES=stay", "WRONG_PLUGIN_FILE=" + file}});
    const pid_t child = NumberIn(file, tool);
    ASSERT_GT(child, 0);
    tool.Signal(signal);
    EXPECT_EQ(tool.Wait().exit_code, 128 + signal);
    EXPECT_TRUE(Ends(child)) << signal;
  }
}

// The parts of a library's file that the dynamic loader reads, for a test to change.
struct ElfParts {
  std::string bytes;
  Elf64_Ehdr header{};
  std::vector<Elf64_Phdr> segments;
  std::vector<Elf64_Dyn> dynamic;

  Elf64_Phdr& Segment(Elf64_Word type, std::ptrdiff_t index = 0) {
    const auto is_it = [type](const Elf64_Phdr& it) { return it.p_type == type; };
    return *(std::find_if(segments.begin(), segments.end(), is_it) + index);
  }
  Elf64_Dyn& Entry(Elf64_Sxword tag) {
    return *std::find_if(dynamic.begin(), dynamic.end(),
                         [tag](const Elf64_Dyn& it) { return it.d_tag == tag; });
  }
  Elf64_Xword& Value(Elf64_Sxword tag) { return Entry(tag).d_un.d_val; }
  // The words of a table in the first segment, where addresses equal offsets in the file.
  Elf64_Word* Words(Elf64_Sxword tag) { return reinterpret_cast<Elf64_Word*>(&bytes[Value(tag)]); }
  Elf64_Sym* Symbols() { return reinterpret_cast<Elf64_Sym*>(Words(DT_SYMTAB)); }
  // The first symbol with a hash, which is the entry function of the plug-in.
  Elf64_Sym& Exported() { return Symbols()[Words(DT_GNU_HASH)[1]]; }
};

using Change = std::function<void(ElfParts&)>;

OwnedFd Crafted(const char* path, const Change& change) {
  const OwnedFd file(open(path, O_RDONLY | O_CLOEXEC));
  ElfParts parts;
  parts.bytes = Content(file.Get());
  const auto copy = [&parts](auto* to, std::size_t offset, std::size_t count) {
    std::memcpy(to, &parts.bytes[offset], count * sizeof *to);
  };
  copy(&parts.header, 0, 1);
  const std::size_t table = parts.header.e_phoff;
  parts.segments.resize(parts.header.e_phnum);
  copy(parts.segments.data(), table, parts.segments.size());
  const Elf64_Phdr place = parts.Segment(PT_DYNAMIC);
  parts.dynamic.resize(place.p_filesz / sizeof(Elf64_Dyn));
  copy(parts.dynamic.data(), place.p_offset, parts.dynamic.size());
  change(parts);
  std::memcpy(&parts.bytes[place.p_offset], parts.dynamic.data(), place.p_filesz);
  std::memcpy(&parts.bytes[table], parts.segments.data(),
              parts.segments.size() * sizeof(Elf64_Phdr));
  std::memcpy(parts.bytes.data(), &parts.header, sizeof parts.header);
  return ScratchFile(parts.bytes);
}

// Adds a segment with that content to the library, and makes it the dynamic section.
void AddDynamicSection(ElfParts& parts, const std::vector<Elf64_Dyn>& entries) {
  constexpr Elf64_Addr kAddress = 1U << 30U;
  const std::size_t size = entries.size() * sizeof(Elf64_Dyn);
  Elf64_Phdr& segment = parts.Segment(PT_GNU_STACK);
  segment = parts.Segment(PT_LOAD);
  segment.p_offset = parts.bytes.size();
  segment.p_vaddr = kAddress;
  segment.p_filesz = segment.p_memsz = size;
  parts.Segment(PT_DYNAMIC).p_vaddr = kAddress;
  parts.bytes.append(reinterpret_cast<const char*>(entries.data()), size);
}

// The tool is not linked to a platform that could replace the missing one. No system has a library
// of the missing one's name.
TEST(Plugins, FindTheirPlatformThemselves) {
  const TemporaryFolder folder;
  const std::string platform = "libtarn_platform_missing.so";
  for (const bool braces : {false, true}) {
    const OwnedFd plugin = Crafted(TARN_PLUGIN_PATH, [&](ElfParts& it) {
      it.bytes.replace(it.bytes.find("libtarn_platform_standin.so"), platform.size(), platform);
      if (!braces) return;
      it.bytes.replace(it.Value(DT_STRTAB) + it.Value(DT_SONAME), 10,
                       std::string("${ORIGIN}\0", 10));
      it.Value(DT_RUNPATH) = it.Value(DT_SONAME);
    });
    const std::string alone = folder.Write("libalone.so", Content(plugin.Get()));
    EXPECT_THAT(Tool({"check", alone}).output,
                AllOf(HasSubstr("FAIL  loads: "), HasSubstr("finds libstdc++.so.6: yes\n"),
                      HasSubstr("FAIL  finds " + platform + ": not found\n")));
    for (const char* command : {"map", "config", "normalize", "shapes"}) {
      const RunResult result = Tool({command, "0", "--plugin", alone});
      EXPECT_EQ(result.exit_code, kTrouble);
      EXPECT_THAT(result.errors, AllOf(IsOneErrorLine(), HasSubstr(platform)));
    }
    const std::string damaged = folder.Write(platform, "no library");
    EXPECT_THAT(Tool({"check", alone}).output,
                HasSubstr("pass  finds " + platform + ": " + damaged));
    std::filesystem::remove(damaged);
  }
}

// A file must not decide which bytes the reader accesses or how much work it does. Tables that the
// loader ignores hide nothing, and those that it reads count.
TEST(Check, ReadsTheTablesOfTheLoader) {
  const std::string damaged = "damaged ELF file";
  const std::string no_object = "not an ELF shared object";
  const std::string no_exports = "FAIL  exports the entry function alone: none";
  const std::pair<std::string, Change> rows[] = {
      {damaged, [](ElfParts& it) { it.header.e_phoff = ~0ULL - 7; }},
      {damaged, [](ElfParts& it) { it.header.e_phoff = it.bytes.size() - 1; }},
      {damaged, [](ElfParts& it) { it.header.e_phentsize = 1; }},
      {no_object, [](ElfParts& it) { it.header.e_type = ET_EXEC; }},
      {"not a 64-bit", [](ElfParts& it) { it.header.e_ident[EI_CLASS] = ELFCLASS32; }},
      {"not a 64-bit", [](ElfParts& it) { it.header.e_ident[EI_DATA] = ELFDATA2MSB; }},
      {"not an ELF file", [](ElfParts& it) { it.header.e_ident[EI_MAG3] = 'x'; }},
      {no_object, [](ElfParts& it) { it.Segment(PT_DYNAMIC).p_type = PT_NULL; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_DYNAMIC).p_vaddr = ~0ULL; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_LOAD, 1).p_memsz = ~0ULL; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_LOAD, 1).p_offset = ~0ULL - 4095; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_LOAD).p_filesz = ~0ULL; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_LOAD, 3).p_offset = it.bytes.size() - 1; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_LOAD).p_memsz = 1; }},
      {damaged, [](ElfParts& it) { it.Segment(PT_LOAD, 1).p_vaddr = it.Segment(PT_LOAD).p_memsz; }},
      {damaged, [](ElfParts& it) { it.Value(DT_STRTAB) = 1ULL << 62U; }},
      {damaged, [](ElfParts& it) { it.Value(DT_SYMTAB) = ~0ULL; }},
      {damaged, [](ElfParts& it) { it.Entry(DT_SYMTAB).d_tag = DT_DEBUG; }},
      {damaged, [](ElfParts& it) { it.Value(DT_GNU_HASH) = ~0ULL - 7; }},
      {damaged, [](ElfParts& it) { it.Words(DT_GNU_HASH)[0] = ~0U; }},
      {damaged, [](ElfParts& it) { ++it.Words(DT_GNU_HASH)[1]; }},
      // Some symbol follows the only one of DT_HASH.
      {damaged,
       [](ElfParts& it) {
         it.Entry(DT_GNU_HASH).d_tag = DT_HASH;
         it.Words(DT_HASH)[1] = 1;
       }},
      // A name without an end.
      {damaged,
       [](ElfParts& it) {
         const std::size_t end = it.Segment(PT_LOAD).p_filesz;
         it.bytes[end - 1] = 'x';
         it.Value(DT_SONAME) = end - 1 - it.Value(DT_STRTAB);
       }},
      {damaged,
       [](ElfParts& it) {
         std::vector<Elf64_Dyn> entries(4096, {DT_DEBUG, {}});
         entries.push_back({DT_NULL, {}});
         AddDynamicSection(it, entries);
       }},
      {"more than 256",
       [](ElfParts& it) {
         std::vector<Elf64_Dyn> entries(257, it.Entry(DT_NEEDED));
         entries.insert(entries.end(), {it.Entry(DT_STRTAB), {DT_NULL, {}}});
         AddDynamicSection(it, entries);
       }},
      {"GetProductInterfaceForVESTA\n",
       [](ElfParts& it) { it.header.e_shoff = it.header.e_shnum = 0; }},
      // Symbol 1 is an import, which the loader finds if its value is not 0.
      {"FAIL  exports the entry function alone: ",
       [](ElfParts& it) { it.Symbols()[1].st_value = 1; }},
      {no_exports, [](ElfParts& it) { it.Exported().st_other = STV_HIDDEN; }},
      {no_exports,
       [](ElfParts& it) { it.Exported().st_info = ELF64_ST_INFO(STB_LOCAL, STT_FUNC); }},
      {"pass  exports", [](ElfParts& it) { it.Exported().st_other = STV_PROTECTED; }},
      {no_exports, [](ElfParts& it) { it.Words(DT_GNU_HASH)[0] = 0; }},
      // Of two entries with one tag the later one counts, but not one after the end.
      {"FAIL  soname: lib",
       [](ElfParts& it) {
         const Elf64_Dyn other{DT_SONAME, {it.Value(DT_NEEDED)}};
         const Elf64_Dyn& first = it.Entry(DT_SONAME);
         AddDynamicSection(it, {it.Entry(DT_STRTAB), first, other, {DT_NULL, {}}, first});
       }},
      {"FAIL  allows unloading: DF_1_NODELETE",
       [](ElfParts& it) {
         AddDynamicSection(it, {it.Entry(DT_STRTAB), {DT_FLAGS_1, {DF_1_NODELETE}}, {DT_NULL, {}}});
       }},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const auto& [expected, change] = rows[i];
    const RunResult result =
        Tool({"check", "/dev/stdin"}, {.input_fd = Crafted(TARN_PLUGIN_PATH, change).Get()});
    EXPECT_THAT(result.output + result.errors, HasSubstr(expected)) << "row " << i;
    const int verdict = result.output.find("FAIL  ") == std::string::npos ? 0 : kFailed;
    EXPECT_EQ(result.exit_code, result.output.empty() ? kTrouble : verdict) << "row " << i;
  }
  // The chain that begins last need not be that of the last bucket.
  const OwnedFd reversed = Crafted(TARN_WRONG_PLUGIN_PATH, [](ElfParts& it) {
    Elf64_Word* const words = it.Words(DT_GNU_HASH);
    Elf64_Word* const buckets = words + 4 + std::ptrdiff_t{2} * words[2];
    ASSERT_GT(words[0], 1);
    std::reverse(buckets, buckets + words[0]);
  });
  const std::string facts = Tool({"check", "/dev/stdin"}, {.input_fd = reversed.Get()}).output;
  EXPECT_THAT(Tool({"check", TARN_WRONG_PLUGIN_PATH}).output,
              StartsWith(facts.substr(0, facts.find("FAIL  has no unique"))));
  const OwnedFd plugin(open(TARN_PLUGIN_PATH, O_RDONLY | O_CLOEXEC));
  for (const std::size_t size : {sizeof(Elf64_Ehdr) - 1, sizeof(Elf64_Ehdr)}) {
    const OwnedFd cut = ScratchFile(Content(plugin.Get()).substr(0, size));
    EXPECT_THAT(Tool({"check", "/dev/stdin"}, {.input_fd = cut.Get()}).errors, HasSubstr(damaged));
  }
}

// "secret", enciphered with algorithm 18 and a key of 64 digits "a".
constexpr const char* kEncipheredSecret = "ARKpKArXwyeRkWnhPSwZ731Enzj92C0WSmkm/PGeEuozFA==\n";

TEST(Encrypt, RefusesALongPasswordRatherThanCutIt) {
  const TemporaryFolder folder;
  const std::string key = folder.Write("some.key", std::string(64, 'a'));
  const std::string longest(1024, 'x');
  EXPECT_EQ(Tool({"encrypt", "--key", key}, {.input = longest + "\r\n"}).exit_code, 0);
  EXPECT_EQ(Tool({"encrypt", "--key", key}, {.input = longest + "y\n"}).exit_code, kTrouble);
}

TEST(Tool, TakesInputThatArrivesInPieces) {
  const TemporaryFolder folder;
  const std::string key = folder.Write("some.key", std::string(64, 'a'));
  struct Row {
    std::vector<std::string> command;
    std::vector<std::string> pieces;
    const char* output;
  };
  for (const auto& [command, pieces, output] :
       {Row{{TARN_HOST_PATH, "encrypt", "--algorithm=18", "--key", key},
            {"sec", "ret\r", "\nother\n"},
            kEncipheredSecret},
        Row{{TARN_HOST_PATH, "normalize"}, {"\xEF", "\xBB", "\xBF", "a"}, "a;\n"}}) {
    Pipe input;
    RunningProgram tool(command, {.input_fd = input.read_end->Get()});
    for (const std::string& piece : pieces) input.Write(piece);
    input.write_end.reset();
    EXPECT_EQ(tool.Wait().output, output);
  }
}

// At any moment, and by exit: only a shell reports 130 for a process that a signal ended.
TEST(Interrupt, EndsTheToolByExit) {
  const TemporaryFolder folder;
  const std::string fifo = folder.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), S_IRWXU), 0);
  // The last signal for which the tool installs a handler before it is ready, and the output.
  for (const auto& [command, last, output] :
       {std::tuple("normalize", SIGINT, ""), {"shapes", SIGALRM, "0 statements, 0 shapes\n"}}) {
    RunningProgram tool({TARN_HOST_PATH, command, fifo});
    ASSERT_TRUE(tool.AwaitHandlerOf(last));
    tool.Signal(SIGINT);
    const RunResult result = tool.Wait();
    EXPECT_EQ(result.exit_code, 130) << command;
    EXPECT_FALSE(result.ended_by_signal) << command;
    EXPECT_EQ(result.output, output);
  }
}

// The statement that is being processed gets two seconds.
TEST(Interrupt, WaitsForNoStatementForEver) {
  const TemporaryFolder folder;
  const std::string file = folder.Path("number");
  // The thread that waits for the plug-in is left on purpose.
  RunningProgram tool({TARN_HOST_PATH, "shapes", "--exact", "--plugin", TARN_WRONG_PLUGIN_PATH},
                      {.input = "a",
                       .environment = {"WRONG_PLUGIN_NEVER_ENDS=", "WRONG_PLUGIN_FILE=" + file,
                                       "TSAN_OPTIONS=report_thread_leaks=0"}});
  ASSERT_NE(NumberIn(file, tool), 0);
  tool.Signal(SIGINT);
  EXPECT_EQ(tool.Wait().exit_code, 130);
}

// As for a program that a shell has started in the background.
TEST(Interrupt, StaysIgnoredWhereItWas) {
  const TemporaryFolder folder;
  const std::string fifo = folder.Path("fifo");
  ASSERT_EQ(mkfifo(fifo.c_str(), S_IRWXU), 0);
  const std::string script =
      "trap '' INT; \"$0\" normalize \"$1\" & exec 3>\"$1\"; kill -INT $!; "
      "echo a >&3; exec 3>&-; wait $!";
  const RunResult result = RunProgram({"/bin/sh", "-c", script, TARN_HOST_PATH, fifo});
  EXPECT_EQ(result.exit_code, 0);
  EXPECT_EQ(result.output, "a;\n");
}

TEST(Interrupt, PrintsTheCountsSoFar) {
  Pipe input;
  RunningProgram tool({TARN_HOST_PATH, "shapes"}, {.input_fd = input.read_end->Get()});
  // An empty pipe shows that the tool has started. During the start Ctrl-C would end it outright.
  input.Write("a;a;half");
  tool.Signal(SIGINT);
  const RunResult result = tool.Wait();
  EXPECT_EQ(result.exit_code, 130);
  EXPECT_THAT(result.output, AllOf(HasSubstr("2 statements, 1 shape\n"), Not(HasSubstr("half"))));
  EXPECT_EQ(result.errors, "tarn_host: shapes: interrupted; this is what was counted so far\n");

  // The main thread reads a report, so the signal interrupts its wait.
  Pipe report;
  RunningProgram reader({TARN_HOST_PATH, "shapes", "--input=report"},
                        {.input_fd = report.read_end->Get()});
  report.Write("{");
  usleep(100'000);
  reader.Signal(SIGINT);
  EXPECT_EQ(reader.Wait().exit_code, 130);
}

// The first SIGINT ends the input. The report then waits for a reader that does not come in time.
TEST(Interrupt, LetsTheReportTakeItsTimeUntilTheSecondSignal) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "ThreadSanitizer keeps a signal until the write that it interrupts has returned";
#endif
  for (const bool twice : {true, false}) {
    Pipe output(O_NONBLOCK);
    const std::string block(4096, 'x');
    while (write(output.write_end->Get(), block.data(), block.size()) > 0) {
    }
    fcntl(output.write_end->Get(), F_SETFL, O_WRONLY);
    fcntl(output.read_end->Get(), F_SETFL, O_RDONLY);
    Pipe input;
    RunningProgram tool({TARN_HOST_PATH, "shapes"},
                        {.input_fd = input.read_end->Get(), .output_fd = output.write_end->Get()});
    input.Write("a;");
    tool.Signal(SIGINT);
    if (twice) {
      for (; tool.Running(); usleep(20'000)) tool.Signal(SIGINT);
    } else {
      // Longer than the statements get.
      sleep(3);
      EXPECT_TRUE(tool.Running());
      output.write_end.reset();
      std::string text(1 << 17, '\0');
      while (read(output.read_end->Get(), text.data(), text.size()) > 0) {
      }
    }
    const RunResult result = tool.Wait();
    EXPECT_EQ(result.exit_code, 130);
    EXPECT_EQ(result.errors.empty(), twice);
  }
}

#ifdef TARN_FREED_SECRETS_PATH
// From standard input to the configuration and back, no block of memory is freed while it contains
// the password.
TEST(Passwords, AreWipedByEveryCommand) {
  const TemporaryFolder folder;
  // The loader splits LD_PRELOAD at blanks, so the library is copied to a path without one.
  const std::string preload = folder.Path("freed_secrets.so");
  std::filesystem::copy_file(TARN_FREED_SECRETS_PATH, preload);
  const std::string secret = "correct horse battery staple";
  RunOptions options{.input = secret + "\r\n",
                     .environment = {"LD_PRELOAD=" + preload, "FREED_SECRET=" + secret,
                                     "TARN_SYS_CONF=" + folder.Path("sys.json"),
                                     "TARN_KEY_FILE=" + folder.Write("key", std::string(64, 'a'))}};
  std::string text = Tool({"encrypt"}, options).output;
  ASSERT_GT(text.size(), secret.size());
  text.pop_back();
  folder.Write("sys.json", R"({"databases": {"db": [{"type": "oracle", "user": "", "service": "",)"
                           R"( "password": ")" +
                               text + R"("}]}})");
  const RunResult result = Tool({"config", "db"}, options);
  EXPECT_EQ(result.exit_code, 0) << result.errors;
  EXPECT_EQ(Tool({"config", "db", "--show-password"}, options).exit_code, 99);
}
#endif

// A terminal: a program writes to one end, and the test reads from the other.
class PseudoTerminal {
 public:
  PseudoTerminal() {
    grantpt(own_end_.Get());
    unlockpt(own_end_.Get());
  }

  int OwnEnd() const noexcept { return own_end_.Get(); }
  OwnedFd ProgramsEnd() const {
    return OwnedFd(open(ptsname(own_end_.Get()), O_RDWR | O_NOCTTY | O_CLOEXEC));
  }

  // Reads until the last program that has the terminal open ends.
  std::string Screen() const {
    std::string screen;
    char block[4096];
    for (ssize_t got = 0; (got = read(own_end_.Get(), block, sizeof block)) > 0;) {
      screen.append(block, static_cast<std::size_t>(got));
    }
    return screen;
  }

 private:
  const OwnedFd own_end_{posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)};
};

// Strangers write statements, names, files and libraries. None of these may control the terminal.
TEST(Terminal, ObeysNoStranger) {
  const std::string bad = "a\x1B]0;b\x07\x7F\xC2\x9B\x9B\r";
  const TemporaryFolder folder;
  const std::string path = folder.Write("key" + bad, "x");
  const std::string library = folder.Path(bad);
  std::ofstream(library, std::ios::binary)
      << Content(Crafted(TARN_PLUGIN_PATH, [&](ElfParts& it) {
                   const auto name = it.Value(DT_STRTAB) + it.Value(DT_NEEDED);
                   it.bytes.replace(name, bad.size(), bad);
                 }).Get());
  folder.Write("sys.json",
               R"({"databases": {"db": [{"type": "\u009b\u001b", "user": "\u0007\u007f",)"
               R"( "password": ""}]}})");
  const std::vector<std::string> commands[] = {{"normalize"},
                                               {"normalize", "--pairs"},
                                               {"normalize", "--input=lines", "--pairs"},
                                               {"normalize", "--input=nul"},
                                               {"normalize", "--input=nul", "--pairs"},
                                               {"normalize", "--dialect=" + bad},
                                               {"normalize", bad},
                                               {"trace"},
                                               {"trace", bad},
                                               {"shapes", "--examples"},
                                               {"shapes", "--exact"},
                                               {"shapes", "--json"},
                                               {"map", bad},
                                               {"map", "0", "--plugin", path},
                                               {"check", library},
                                               {"check", path},
                                               {"config", "db"},
                                               {"config", "db", "--json"},
                                               {"config", bad},
                                               {"keygen", path},
                                               {"encrypt", "--key", path},
                                               {bad}};
  for (const std::vector<std::string>& command : commands) {
    const PseudoTerminal terminal;
    std::vector<std::string> words{"/bin/sh", "-c", "exec \"$@\" 2>&1", "sh", TARN_HOST_PATH};
    words.insert(words.end(), command.begin(), command.end());
    std::optional<OwnedFd> end = terminal.ProgramsEnd();
    RunningProgram tool(words, {.input = bad + "\n;1.0e999" + bad,
                                .environment = {"NO_COLOR=1", "TARN_LOG_LEVEL=debug",
                                                "TARN_SYS_CONF=" + folder.Path("sys.json"),
                                                "TARN_KEY_FILE=" + path},
                                .output_fd = end->Get()});
    end.reset();
    std::string screen = terminal.Screen();
    tool.Wait();
    // The terminal itself adds these carriage returns.
    for (std::size_t at = 0; (at = screen.find("\r\n", at)) != std::string::npos;)
      screen.erase(at, 1);
    std::erase(screen, '\0');
    EXPECT_NE(screen, "");
    EXPECT_EQ(host::Printable(screen), screen) << testing::PrintToString(command);
  }
}

// Progress is shown on a terminal only. The input is a pipe, so the total is unknown.
TEST(Terminal, ShowsProgressThereAlone) {
  const auto run = [](const std::string& shell, const std::string& option,
                      const std::string& command) {
    const RunResult result = RunProgram({shell, option, command, "/dev/null"},
                                        {.environment = {"TOOL=" TARN_HOST_PATH, "TERM=xterm"}});
    return result.output + result.errors;
  };
  for (const char* tool : {" shapes", " normalize >/dev/null"}) {
    const std::string command =
        std::string("(echo 'a;'; sleep 0.7; echo 'b;'; sleep 0.2) | \"$TOOL\"") + tool;
    EXPECT_THAT(
        run("/usr/bin/script", "-qec", "stty cols 60; " + command),
        AllOf(HasSubstr("\r0 MiB, 2 statements\x1B[K\r\x1B[K"), Not(HasSubstr(", 1 statements"))));
    EXPECT_THAT(run("/usr/bin/script", "-qec", "stty cols 19; " + command),
                HasSubstr("\r0 MiB, 2 statem...\x1B[K"));
    EXPECT_THAT(run("/bin/sh", "-c", command), Not(HasSubstr("MiB")));
  }
  // The length of a file is known. The tool is stopped until it is time to show the progress.
  const TemporaryFolder folder;
  std::string log;
  while (log.size() < std::size_t{16} << 20U) log += "select a from b where c = 1;\n";
  EXPECT_THAT(run("/usr/bin/script", "-qec",
                  "\"$TOOL\" normalize --input=lines " + folder.Write("log", log) +
                      " >/dev/null & sleep 0.05; kill -STOP $!; sleep 0.7; kill -CONT $!; wait"),
              ContainsRegex("\r\\[#*[.]+\\] [0-9]+ % of 16 MiB, [0-9]+ statements"));
}

// Runs `encrypt` on a terminal of its own.
class EncryptOnATerminal : public testing::Test {
 protected:
  RunningProgram Start() {
    const OwnedFd end = terminal_.ProgramsEnd();
    return RunningProgram({"/usr/bin/setsid", "--ctty", TARN_HOST_PATH, "encrypt", "--key",
                           folder_.Write("some.key", std::string(64, 'a')), "--algorithm=18"},
                          {.input_fd = end.Get()});
  }

  // Waits for a question, and expects that the echo is off.
  void AwaitQuestion() {
    std::string asked;
    while (!asked.ends_with(": ")) {
      char block[256];
      const ssize_t got = read(terminal_.OwnEnd(), block, sizeof block);
      if (got <= 0) throw std::runtime_error("the program has gone after: " + asked);
      asked.append(block, static_cast<std::size_t>(got));
    }
    screen_ += asked;
    EXPECT_FALSE(Echoes());
  }

  void Answer(const std::string& keys) {
    AwaitQuestion();
    ASSERT_EQ(write(terminal_.OwnEnd(), keys.data(), keys.size()), std::ssize(keys));
  }

  RunResult Enter(const std::string& password, const std::string& again) {
    RunningProgram tool = Start();
    Answer(password + '\n');
    Answer(again + '\n');
    return tool.Wait();
  }

  bool Echoes() const {
    termios settings{};
    tcgetattr(terminal_.OwnEnd(), &settings);
    return (settings.c_lflag & ECHO) != 0;
  }

  const TemporaryFolder folder_;
  const PseudoTerminal terminal_;
  std::string screen_;
};

TEST_F(EncryptOnATerminal, HidesThePasswordAndWantsItTwice) {
  EXPECT_EQ(Enter("secret", "secret").output, kEncipheredSecret);
  EXPECT_EQ(screen_, "Password: \r\nThe same again: ");
  EXPECT_EQ(Enter("secret", "secert").errors, "tarn_host: encrypt: the two passwords differ\n");
}

TEST_F(EncryptOnATerminal, AsksOnceForNothing) {
  RunningProgram tool = Start();
  Answer("\n\n");
  EXPECT_EQ(tool.Wait().errors, "tarn_host: encrypt: standard input holds no password\n");
  EXPECT_THAT(terminal_.Screen(), Not(HasSubstr("again")));
}

TEST_F(EncryptOnATerminal, TurnsTheEchoOnWhateverEndsIt) {
  for (const int signal :
       {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGALRM, SIGUSR1, SIGABRT, SIGTRAP, SIGRTMIN}) {
    RunningProgram tool = Start();
    AwaitQuestion();
    tool.Signal(signal);
    EXPECT_EQ(tool.Wait().exit_code, 128 + signal);
    EXPECT_TRUE(Echoes()) << signal;
  }
  RunningProgram tool = Start();
  Answer("\x03");
  EXPECT_EQ(tool.Wait().exit_code, 130);
  EXPECT_TRUE(Echoes());
}

// The kernel does not stop a process whose parent is in another session, since nobody could
// continue it. So a shell on the same terminal starts the tool.
TEST_F(EncryptOnATerminal, IsSuspendedWithTheEchoOn) {
  const std::string state = folder_.Path("state");
  const OwnedFd end = terminal_.ProgramsEnd();
  RunningProgram shell(
      {"/usr/bin/setsid", "--ctty", "/bin/bash", "-mc",
       "\"$0\" encrypt --key \"$1\" --algorithm=18; stty -a <&0 >\"$2\"; fg >/dev/null",
       TARN_HOST_PATH, folder_.Write("some.key", std::string(64, 'a')), state},
      {.input_fd = end.Get()});
  Answer("\x1A");
  Answer("secret\n");
  Answer("secret\n");
  EXPECT_EQ(shell.Wait().output, kEncipheredSecret);
  std::ifstream settings(state);
  const std::string text{std::istreambuf_iterator<char>(settings), {}};
  EXPECT_THAT(text, HasSubstr(" echo "));
}

}  // namespace
}  // namespace tarn::test
