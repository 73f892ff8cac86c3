// The pattern road's steps alone: a text as it enters a step (or a run of steps) and as it leaves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <boost/lexical_cast.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "sqlnorm/pattern_road.h"
#include "support/table.h"

namespace tarn::sqlnorm {
namespace {

using test::RowName;
using namespace std::string_view_literals;

struct Rewrite {
  std::string_view before;
  std::string_view after;
};

// The steps `first` to `last` and what they make of some texts.
struct Group : test::NamedRow {
  int first;
  int last;
  std::vector<Rewrite> rewrites;
};

class PatternSteps : public testing::TestWithParam<Group> {};

TEST_P(PatternSteps, Rewrite) {
  const Group& group = GetParam();
  for (const Rewrite& rewrite : group.rewrites) {
    EXPECT_EQ(RunSteps(std::string(rewrite.before), group.first, group.last), rewrite.after)
        << "before: " << rewrite.before;
  }
}

constexpr Rewrite Unchanged(std::string_view text) { return {text, text}; }

const Group kLiteralSteps[] = {
    {{"QuotedStatement"},
     1,
     1,
     {{"\"select 1\"", "select 1"},
      {"  \"  select a from b  \"  ", "select a from b  "},
      {"\"\"", ""},
      {"\"a\" = \"b\"", "a\" = \"b"},
      {"\"a\nb\"", "a\nb"},
      Unchanged("\""),
      Unchanged("a \"b\""),
      Unchanged("\"a\" b"),
      Unchanged("")}},
    {{"DecimalPrint"},
     2,
     2,
     {{"1.50", "1.5"},
      {"3.0", "3"},
      {"100.0", "100"},
      {"007.50", "7.5"},
      {"0.25", "0.25"},
      {"0.1", "0.10000000000000001"},
      {"7.0e-1", "0.69999999999999996"},
      {"15.0e-1", "1.5"},
      {"2.5E3", "2500"},
      {"1.5e+5", "150000"},
      {"1.0e16", "10000000000000000"},
      {"1.0e17", "1e+17"},
      {"1.0e20", "1e+20"},
      {"1.0e-5", "1.0000000000000001e-05"},
      {"0.0001", "0.0001"},
      {"12345678901234567890.5", "1.2345678901234567e+19"},
      {"1.0e-320", "9.9998886718268301e-321"},
      {"1.0e-400", "0"}}},
    {{"DecimalLiteral"},
     2,
     2,
     {{"select * from t1 where a = 1.50", "select * from t1 where a = 1.5"},
      {"x = -1.5", "x = -1.5"},
      {"WHERE name = '0.10'", "WHERE name = '0.10000000000000001'"},
      {"172.10.10.10", "172.09999999999999.10.1"},
      {"(2.50,3.0)", "(2.5,3)"},
      Unchanged("1.5e"),
      Unchanged("1.5x"),
      Unchanged("abc1.5"),
      Unchanged("x1.50"),
      Unchanged("1. 50"),
      Unchanged(".50"),
      Unchanged("150")}},
    {{"HexLiteral"},
     3,
     3,
     {{"0x1F", "31"},
      {"0X0a", "10"},
      {"0x10", "16"},
      {"0x00000000", "0"},
      {"0xFFFFFFFF", "4294967295"},
      {"(0x1,0x2)", "(1,2)"},
      Unchanged("x = 0x123456789"),
      Unchanged("a_0x10"),
      Unchanged("0x1G"),
      Unchanged("0x")}},
    // Replacements longer and shorter than the literals, each at its own place.
    {{"SeveralLiterals"},
     2,
     3,
     {{"a=0.1,b=2.50,c=0x0a", "a=0.10000000000000001,b=2.5,c=10"},
      {"UPDATE t SET a=0.25,b=0x0A WHERE c=3.0", "UPDATE t SET a=0.25,b=10 WHERE c=3"}}},
};
INSTANTIATE_TEST_SUITE_P(Literals, PatternSteps, testing::ValuesIn(kLiteralSteps), RowName<Group>);

const Group kStructuralSteps[] = {
    {{"ComparisonGroup"},
     4,
     4,
     {{"(a.b = c and d >= 1)", " a.b = c and d >= 1 "},
      {"ON (t1.id=t2.id)", "ON  t1.id=t2.id "},
      {"(x<y AND y<=z and z!=w)", " x<y AND y<=z and z!=w "},
      {"(a = 1.5)", " a = 1.5 "},
      {"((a = b))", "( a = b )"},
      {"((a = b) and (c = d))", "( a = b  and  c = d )"},
      {"( a = b)", "  a = b "},
      Unchanged("(a = b )"),
      Unchanged("(a = b or c = d)"),
      Unchanged("(a = b andc = d)"),
      Unchanged("(x<>y)"),
      Unchanged("(a = 'x')"),
      Unchanged("(a = ?)"),
      Unchanged("(a>=-1)")}},
    {{"NegatedInList"},
     5,
     5,
     {{"NOT (a IN (1,2))", "a NOT IN (1,2)"},
      {"where not(x.y in(select z from w)) and k", "where x.y NOT IN (select z from w) and k"},
      {"not ( a.b in ( 1 , 2 ) )", "a.b NOT IN ( 1 , 2 )"},
      Unchanged("NOT (a IN (f(1),2))"),
      Unchanged("NOT ((a IN (1,2)))"),
      Unchanged("NOT (a IN ())"),
      Unchanged("xNOT (a IN (1))")}},
    {{"ParameterList"},
     6,
     6,
     {{"exec x (@p1)", "exec x "},
      {"(@p0,@p1, @ p2)", ""},
      {"( @p1 )", ""},
      {"values (@p0, @p1), (@p2, @p3)", "values , "},
      Unchanged("(@P1)"),
      Unchanged("(@p)"),
      Unchanged("()"),
      Unchanged("f(@p1, 'x')")}},
    {{"MultiRowValues"},
     7,
     7,
     {{"insert into t values (1,2), (3,4)", "insert into t values (1,2)"},
      {"values(1,2) ,(3,4) on duplicate key update a=1", "values(1,2)"},
      {"VALUES (1,2),\n(3,4)", "VALUES (1,2)"},
      {"VALUES (now(), 1), (2, 3)", "VALUES (now()"},
      {"VALUES (1) x VALUES (2), (3)", "VALUES (1) x VALUES (2)"},
      Unchanged("VALUES (1,2)"),
      Unchanged("VALUES (), (1)"),
      Unchanged("MYVALUES (1), (2)"),
      Unchanged("VALUES (1,2) x, (3,4)")}},
    {{"NumberLetter"},
     8,
     8,
     {{"10abc", "10 abc"},
      {"3_x", "3 _x"},
      {"1a2b", "1 a2b"},
      {"a=5AND", "a=5 AND"},
      {"1e+20", "1 e+20"},
      Unchanged("t3x"),
      Unchanged("12 34")}},
};
INSTANTIATE_TEST_SUITE_P(Structure, PatternSteps, testing::ValuesIn(kStructuralSteps),
                         RowName<Group>);

const Group kSpacingSteps[] = {
    {{"TokenSpacing"},
     9,
     9,
     {{"a=b", " a = b "},
      {"a = b", " a = b "},
      {"f(x,y)", " f  (  x  ,  y  ) "},
      {"a<>b", " a  <>  b "},
      {"a = -1", " a = - 1 "},
      {"a=-1", " a =- 1 "},
      {"t1.*", " t1 .*"},
      {"'x y'", "' x  y '"},
      {"a,,b", " a  ,  ,  b "},
      {"x+\ty", " x + y "},
      {"a!=b", " a  !=  b "},
      Unchanged("= \t*")}},
    {{"WhitespaceRun"},
     10,
     10,
     {{" a  b ", " a b "}, {"a\t\tb", "a b"}, {"a\r\n\v\fb", "a b"}, Unchanged("a\tb")}},
    {{"InsertKeyword"},
     11,
     11,
     {{" insert into tab ", " INSERT tab "},
      {"Insert\n Into tab", "INSERT tab"},
      {"insert tab", "INSERT tab"},
      {"insert intox", "INSERT intox"},
      Unchanged("inserted insert_x")}},
    {{"DeleteKeyword"},
     12,
     12,
     {{"Delete  From t", "DELETE t"}, {"delete t", "DELETE t"}, Unchanged("deleted xdelete")}},
    {{"OtherKeywords"},
     13,
     17,
     {{"select From uPDATE where values", "SELECT FROM UPDATE WHERE VALUES"},
      Unchanged("selects fromx update_ xwhere values1 and or not in set join")}},
    {{"SpacedDot"},
     18,
     18,
     {{" a . b ", " a.b "},
      {" db .. tab ", " db..tab "},
      {"a . b . c", "a.b.c"},
      Unchanged(" a .* "),
      Unchanged(" a ... b ")}},
    {{"SpacedComma"},
     19,
     19,
     {{" a , b ", " a, b "}, {" a , , b ", " a, , b "}, Unchanged("a ,b")}},
};
INSTANTIATE_TEST_SUITE_P(Spacing, PatternSteps, testing::ValuesIn(kSpacingSteps), RowName<Group>);

const Group kStretches[] = {
    {{"StructureToCommas"},
     4,
     19,
     {{"select t3.a from tab t3 , tab2 t7 where t3.x = t7.y",
       " SELECT t3.a FROM tab t3, tab2 t7 WHERE t3.x = t7.y "},
      {"SELECT t3.a FROM tab t3 WHERE (t3.x = 1 and t3.y >= 2)",
       " SELECT t3.a FROM tab t3 WHERE t3.x = 1 and t3.y >= 2 "},
      {"select * from tab where not (a.b in (1, 2,3))",
       " SELECT * FROM tab WHERE a.b NOT IN ( 1, 2, 3 ) "},
      {"insert into tab (a,b) values (1,2),(3,4),(5,6)", " INSERT tab ( a, b ) VALUES ( 1, 2 ) "},
      {"update tab set a = 'x y' where id = 10abc",
       " UPDATE tab set a = ' x y ' WHERE id = 10 abc "},
      {"delete from tab t1 where t1.id=5", " DELETE tab t1 WHERE t1.id = 5 "},
      {"a=-1", " a =- 1 "},
      {"a = -1", " a = - 1 "},
      Unchanged("")}},
    {{"AliasesToEnd"},
     20,
     23,
     {{" SELECT t3.a FROM tab t3, tab2 t7 WHERE t3.x = t7.y ",
       "SELECT ____t1.a FROM tab ____t1, tab2 ____t2 WHERE ____t1.x = ____t2.y"},
      {" SELECT t3.a FROM tab t3 WHERE t3.x = 1 and t3.y >= 2 ",
       "SELECT a FROM tab ____t1 WHERE x = 1 and y >= 2"},
      {" SELECT t1 .* FROM tab AS t1 WHERE t1.a <> t1.b ", "SELECT * FROM tab WHERE a <> b"},
      {" DELETE tab t1 WHERE t1.id = 5 ", "DELETE tab ____t1 WHERE id = 5"},
      {" UPDATE tab t4 set t4.a = 1 WHERE t4.b = 2 ", "UPDATE tab ____t1 set a = 1 WHERE b = 2"},
      {" SELECT t7.a, t3.b FROM x t3, y t7 ", "SELECT ____t1.a, ____t2.b FROM x ____t2, y ____t1"},
      {" SELECT t1.a, t01.b FROM x t1 join y t01 on t1.k = t01.k ",
       "SELECT ____t1.a, ____t2.b FROM x ____t1 join y ____t2 on ____t1.k = ____t2.k"},
      {" SELECT x.a FROM tab as t5 WHERE t5.b = ( SELECT t6.c FROM u t6 ) ",
       "SELECT x.a FROM tab as ____t1 WHERE ____t1.b = ( SELECT ____t2.c FROM u ____t2 )"},
      {" SELECT t2 FROM tab ", "SELECT ____t1 FROM tab"},
      {" SELECT a.t1 FROM a ", "SELECT a.____t1 FROM a"},
      {" SELECT t1_x, xt1, t1 FROM t ", "SELECT t1_x, xt1, ____t1 FROM t"},
      {" SELECT T1.a FROM tab T1 ", "SELECT T1.a FROM tab T1"},
      {" t1.a = 5 ", "a = 5"},
      {" SELECT * FROM tab ", "SELECT * FROM tab"},
      // Stripped of a qualifier only where whitespace stands before it.
      {"(t1.a) x t1", "(____t1.a) x ____t1"},
      {" x aS\tt1\n", "x"},
      {" \t\n ", ""}}},
    {{"Trims"}, 22, 23, {{"\n a b \n\n", "a b"}, {" ", ""}, Unchanged("a  b"), Unchanged("")}},
};
INSTANTIATE_TEST_SUITE_P(Stretches, PatternSteps, testing::ValuesIn(kStretches), RowName<Group>);

// Alone, the step can't know how many aliases there were: it runs on what the alias step counted.
TEST(SingleAliasStripping, IsSkippedWithoutExactlyOneAlias) {
  constexpr int kStripping = 21;
  EXPECT_EQ(RunSteps(" ____t1.a ", kStripping, kStripping), " ____t1.a ");
  EXPECT_EQ(RunSteps(" ____t1.a t4", kStripping - 1, kStripping), " a ____t1");
  EXPECT_EQ(RunSteps(" t4.a t5", kStripping - 1, kStripping), " ____t1.a ____t2");
}

class Recorder : public StepObserver {
 public:
  void AfterStep(int step, const char* name, const std::string& text) override {
    steps_.push_back(step);
    names_.emplace_back(name);
    last_text_ = text;
  }

  std::vector<int> steps_;
  std::vector<std::string> names_;
  std::string last_text_;
};

TEST(StepObserver, SeesEveryStepInOrder) {
  Recorder recorder;
  const std::string canonical = NormalizeByPatterns("select 1.50", &recorder);
  ASSERT_EQ(recorder.steps_.size(), static_cast<std::size_t>(kStepCount));
  for (int step = 1; step <= kStepCount; ++step) {
    EXPECT_EQ(recorder.steps_[static_cast<std::size_t>(step - 1)], step);
  }
  EXPECT_THAT(recorder.names_, testing::Each(testing::Not(testing::IsEmpty())));
  EXPECT_EQ(canonical, "SELECT 1.5");
  EXPECT_EQ(recorder.last_text_, canonical);
}

TEST(PatternRoad, ThrowsWhatTheLibrariesThrow) {
  EXPECT_THROW(NormalizeByPatterns("x=1.0e999"), boost::bad_lexical_cast);
  // A group too long for the matcher's backtracking memory.
  std::string group = "(a=b";
  constexpr int kComparisons = 200'000;
  for (int i = 0; i < kComparisons; ++i) group += " and a=b";
  EXPECT_THROW(NormalizeByPatterns(group), std::runtime_error);
}

}  // namespace
}  // namespace tarn::sqlnorm
