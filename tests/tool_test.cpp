// Tests the built tarn_host as a person runs it, on good and bad input.
#include <elf.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "support/case_file.h"
#include "support/run_program.h"
#include "support/surroundings.h"

namespace tarn::test {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

// A text like `pattern`, in which "..." is any text, also none.
MATCHER_P(IsLike, pattern, "is like " + testing::PrintToString(pattern)) {
  const std::string_view dots = "...";
  std::string_view text = arg;
  std::string_view rest = pattern;
  for (bool first = true;; first = false) {
    const std::size_t end = rest.find(dots);
    const std::string_view part = rest.substr(0, end);
    if (end == std::string_view::npos) return first ? text == part : text.ends_with(part);
    const std::size_t at = text.find(part);
    if (at == std::string_view::npos || (first && at != 0)) return false;
    text.remove_prefix(at + part.size());
    rest.remove_prefix(end + dots.size());
  }
}

class ToolRun : public testing::TestWithParam<CaseRow> {};

TEST_P(ToolRun, EndsAsItsRowSays) {
  const TemporaryFolder folder;
  std::filesystem::copy(TARN_CASES "/tool", folder.Path(""));
  folder.Write("some.key", std::string(64, 'a'));
  ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), S_IRWXU), 0);
  const CaseTexts& texts = GetParam().texts;
  folder.Write("input", texts.at(0));
  std::istringstream label = GetParam().Words();
  int exit_code = 0;
  std::string command;
  std::getline(label >> exit_code >> std::ws, command);
  command = command.starts_with("$ ") ? command.substr(2) : "tarn_host " + command;
  // NOLINTBEGIN(bugprone-suspicious-missing-comma): the macros are literals.
  const RunResult result = RunProgram(
      {"timeout", "300", "/bin/bash", "-o", "pipefail", "-c", command},
      {.input = texts[0],
       .environment = {"PATH=" TARN_TOOL_FOLDER ":/usr/bin:/bin", "SHELL=/bin/bash", "HOME=.",
                       "BASH_ENV=functions.sh", "MANUAL=" TARN_MANUAL, "PLUGIN=" TARN_PLUGIN_PATH,
                       "WRONG=" TARN_WRONG_PLUGIN_PATH, "FREED_SECRETS=" TARN_FREED_SECRETS_PATH,
                       "SANITIZER=" TARN_SANITIZER, "TARN_SYS_CONF=sys.json",
                       "TARN_KEY_FILE=some.key", "APP_CONF_FILE=app.json", "TARN_PROC_ID=4071",
                       "TARN_PROC_HANDLE=70000", "TARN_LOG_LEVEL=off", "TERM=xterm", "NO_COLOR="},
       .folder = folder.Path("")});
  // NOLINTEND(bugprone-suspicious-missing-comma)
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

// A library's file. Its members are the parts that the dynamic loader reads, for a test to change.
struct Elf {
  explicit Elf(const char* path) {
    std::ifstream file(path, std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(file), {});
  }

  template <typename T>
  T* At(std::size_t offset) {
    return reinterpret_cast<T*>(&bytes[offset]);
  }
  Elf64_Ehdr& Header() { return *At<Elf64_Ehdr>(0); }
  Elf64_Phdr& Segment(Elf64_Word type) {
    auto* segment = At<Elf64_Phdr>(Header().e_phoff);
    while (segment->p_type != type) ++segment;
    return *segment;
  }
  Elf64_Phdr& Load(int index = 0) { return *(&Segment(PT_LOAD) + index); }
  Elf64_Dyn& Entry(Elf64_Sxword tag) {
    auto* entry = At<Elf64_Dyn>(Segment(PT_DYNAMIC).p_offset);
    while (entry->d_tag != tag) ++entry;
    return *entry;
  }
  Elf64_Xword& Value(Elf64_Sxword tag) { return Entry(tag).d_un.d_val; }
  // The words of a table in the first segment, where addresses equal offsets in the file.
  Elf64_Word* Words(Elf64_Sxword tag) { return At<Elf64_Word>(Value(tag)); }
  Elf64_Sym& Symbol(std::size_t index) { return At<Elf64_Sym>(Value(DT_SYMTAB))[index]; }
  // The first symbol with a hash, which is the entry function of the plug-in.
  Elf64_Sym& Exported() { return Symbol(Words(DT_GNU_HASH)[1]); }

  // Adds a segment with these entries, which becomes the dynamic section.
  void SetDynamic(const std::vector<Elf64_Dyn>& entries) {
    const std::size_t size = entries.size() * sizeof(Elf64_Dyn);
    Elf64_Phdr& segment = Segment(PT_GNU_STACK);
    segment = Load();
    segment.p_offset = bytes.size();
    segment.p_vaddr = Segment(PT_DYNAMIC).p_vaddr = 1U << 30U;
    segment.p_filesz = segment.p_memsz = size;
    bytes.append(reinterpret_cast<const char*>(entries.data()), size);
  }
  void Repeat(std::size_t count, const Elf64_Dyn& entry) {
    std::vector<Elf64_Dyn> entries(count, entry);
    entries.insert(entries.end(), {{DT_STRTAB, {}}, {DT_NULL, {}}});
    SetDynamic(entries);
  }

  std::string bytes;
};

RunResult Checked(const std::string& bytes) {
  return RunProgram({TARN_TOOL_FOLDER "/tarn_host", "check", "/dev/stdin"}, {.input = bytes});
}

constexpr Elf64_Dyn kIgnored{DT_DEBUG, {}};
constexpr const char* kDamaged = "damaged ELF file";
constexpr const char* kNoObject = "not an ELF shared object";
constexpr const char* kNoExports = "FAIL  exports the entry function alone: none";

// A file must not decide which bytes the reader accesses or how much work it does. Tables that the
// loader ignores hide nothing, and those that it reads count.
const struct {
  const char* expected;
  void (*change)(Elf&);
} kChanges[] = {
    {kDamaged, [](Elf& it) { it.Header().e_phoff = ~0ULL - 7; }},
    {kDamaged, [](Elf& it) { it.Header().e_phoff = it.bytes.size() - 1; }},
    {kDamaged, [](Elf& it) { it.Header().e_phentsize = 1; }},
    {kDamaged, [](Elf& it) { it.bytes.resize(sizeof(Elf64_Ehdr)); }},
    {kDamaged, [](Elf& it) { it.bytes.resize(sizeof(Elf64_Ehdr) - 1); }},
    {kNoObject, [](Elf& it) { it.Header().e_type = ET_EXEC; }},
    {"not a 64-bit", [](Elf& it) { it.Header().e_ident[EI_CLASS] = ELFCLASS32; }},
    {"not a 64-bit", [](Elf& it) { it.Header().e_ident[EI_DATA] = ELFDATA2MSB; }},
    {"not an ELF file", [](Elf& it) { it.Header().e_ident[EI_MAG3] = 'x'; }},
    {kNoObject, [](Elf& it) { it.Segment(PT_DYNAMIC).p_type = PT_NULL; }},
    {kDamaged, [](Elf& it) { it.Segment(PT_DYNAMIC).p_vaddr = ~0ULL; }},
    {kDamaged, [](Elf& it) { it.Load(1).p_memsz = ~0ULL; }},
    {"pass  soname", [](Elf& it) { it.Load(3).p_memsz = ~it.Load(3).p_vaddr - 4096; }},
    {kDamaged, [](Elf& it) { it.Load(1).p_offset = ~0ULL - 4095; }},
    {kDamaged, [](Elf& it) { it.Load().p_filesz = ~0ULL; }},
    {kDamaged, [](Elf& it) { it.Load(3).p_offset = it.bytes.size() - 1; }},
    {kDamaged, [](Elf& it) { it.Load().p_memsz = 1; }},
    // The second segment begins in the page of the first one's last byte.
    {kDamaged, [](Elf& it) { it.Load().p_memsz = it.Load(1).p_vaddr / 4096 * 4096 + 1; }},
    {kDamaged, [](Elf& it) { it.Value(DT_STRTAB) = 1ULL << 62U; }},
    {kDamaged, [](Elf& it) { it.Value(DT_SYMTAB) = ~0ULL; }},
    {kDamaged, [](Elf& it) { it.Entry(DT_SYMTAB).d_tag = DT_DEBUG; }},
    {kDamaged, [](Elf& it) { it.Value(DT_GNU_HASH) = ~0ULL - 7; }},
    {kDamaged, [](Elf& it) { it.Words(DT_GNU_HASH)[0] = ~0U; }},
    {kDamaged, [](Elf& it) { ++it.Words(DT_GNU_HASH)[1]; }},
    // Some symbol follows the only one of DT_HASH.
    {kDamaged, [](Elf& it) { (it.Entry(DT_GNU_HASH).d_tag = DT_HASH, it.Words(DT_HASH)[1] = 1); }},
    // A name without an end.
    {kDamaged,
     [](Elf& it) {
       const std::size_t end = it.Load().p_filesz;
       it.bytes[end - 1] = 'x';
       it.Value(DT_SONAME) = end - 1 - it.Value(DT_STRTAB);
     }},
    {kDamaged, [](Elf& it) { it.Repeat(4095, kIgnored); }},
    {"soname: none", [](Elf& it) { it.Repeat(4094, kIgnored); }},
    {"more than 256", [](Elf& it) { it.Repeat(257, it.Entry(DT_NEEDED)); }},
    {"soname: none", [](Elf& it) { it.Repeat(256, it.Entry(DT_NEEDED)); }},
    {"GetProductInterfaceForVESTA\n",
     [](Elf& it) { it.Header().e_shoff = it.Header().e_shnum = 0; }},
    // Symbol 1 is an import, which the loader finds if its value is not 0.
    {"FAIL  exports the entry function alone: ", [](Elf& it) { it.Symbol(1).st_value = 1; }},
    {kNoExports, [](Elf& it) { it.Exported().st_other = STV_HIDDEN; }},
    {kNoExports, [](Elf& it) { it.Exported().st_info = ELF64_ST_INFO(STB_LOCAL, STT_FUNC); }},
    {"pass  exports", [](Elf& it) { it.Exported().st_other = STV_PROTECTED; }},
    {kNoExports, [](Elf& it) { it.Words(DT_GNU_HASH)[0] = 0; }},
    // Of two entries with one tag the later one counts, but not one after the end.
    {"FAIL  soname: lib",
     [](Elf& it) {
       const Elf64_Dyn name = it.Entry(DT_SONAME);
       const Elf64_Dyn other{DT_SONAME, {it.Value(DT_NEEDED)}};
       it.SetDynamic({it.Entry(DT_STRTAB), name, other, {DT_NULL, {}}, name});
     }},
    {"FAIL  allows unloading: DF_1_NODELETE", [](Elf& it) {
       it.SetDynamic({it.Entry(DT_STRTAB), {DT_FLAGS_1, {DF_1_NODELETE}}, {DT_NULL, {}}});
     }}};

TEST(Check, ReadsTheTablesOfTheLoader) {
  for (std::size_t i = 0; i < std::size(kChanges); ++i) {
    Elf library(TARN_PLUGIN_PATH);
    kChanges[i].change(library);
    const RunResult result = Checked(library.bytes);
    EXPECT_THAT(result.output + result.errors, HasSubstr(kChanges[i].expected)) << "change " << i;
    const int verdict = result.output.find("FAIL  ") == std::string::npos ? 0 : 1;
    EXPECT_EQ(result.exit_code, result.output.empty() ? 2 : verdict) << "change " << i;
  }
  // The chain that begins last need not be that of the last bucket.
  Elf reversed(TARN_WRONG_PLUGIN_PATH);
  const RunResult plain = Checked(reversed.bytes);
  Elf64_Word* const words = reversed.Words(DT_GNU_HASH);
  Elf64_Word* const buckets = words + 4 + std::ptrdiff_t{2} * words[2];
  ASSERT_GT(words[0], 1);
  std::reverse(buckets, buckets + words[0]);
  const std::string facts = Checked(reversed.bytes).output;
  EXPECT_THAT(plain.output, StartsWith(facts.substr(0, facts.find("FAIL  has no unique"))));
}

}  // namespace
}  // namespace tarn::test
