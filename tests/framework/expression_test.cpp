// Expression evaluator against values worked out by hand or computed with
// <cmath> in double.

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "framework/expression.h"
#include "support/log_capture.h"

namespace ONDREL2 {
namespace {

struct Result {
  double value;
  int kind;       // token kind after parsing; TE_TOK_END when all was read
  long position;  // parser's stop position in the text
};

// Parses `text` against `table`, and folds it when all was read.
te_node* Parse(const char* text, te_state* state, const xvariable* table = nullptr, int n = 0) {
  *state = te_state{};
  state->start = text;
  state->lookup = table;
  state->lookup_len = n;
  te_node* root = te_parse(state);
  if (state->type == TE_TOK_END) te_fold(root);
  return root;
}

Result Evaluate(const std::string& text, const xvariable* lookup = nullptr, int count = 0) {
  te_state state;
  te_node* root = Parse(text.c_str(), &state, lookup, count);
  EXPECT_NE(root, nullptr) << text;
  const Result r{state.type == TE_TOK_END ? te_eval(root) : std::nan(""), state.type,
                 static_cast<long>(state.next - text.c_str())};
  te_free(root);
  return r;
}

double Value(const std::string& text) {
  const Result r = Evaluate(text);
  EXPECT_EQ(r.kind, TE_TOK_END) << "'" << text << "' did not parse";
  return r.value;
}

class ExpressionTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { te_init(); }
};

// Precedence and associativity, then floor, ceil and the combinatorics in
// their 32-bit forms.
TEST_F(ExpressionTest, ValuesOfOperatorsAndFunctions) {
  const struct {
    const char* text;
    double expected;
  } cases[] = {
      {"1,2", 2.0},
      {"2+3*4", 14.0},
      {"10-4-3", 3.0},
      {"100/10/5", 2.0},  // left to right
      {"2^3^2", 64.0},    // (2^3)^2, not 2^9
      {"-2^2", 4.0},      // sign binds tighter than ^
      {"2^-1", 0.5},
      {"-(1+2)*2", -6.0},
      {"2^0.5", std::sqrt(2.0)},
      {"7%3", 1.0},
      {"-7%3", -1.0},
      {"7.5%-2", 1.5},  // sign of the dividend
      {" 1 +\t2\r\n", 3.0},
      {".5", 0.5},
      {"sin 2^2", std::pow(std::sin(2.0), 2.0)},  // a one-argument function takes a power
      {"-sin 1", -std::sin(1.0)},
      {"log(100)", 2.0},
      {"ln(e)", 1.0},
      {"e", 2.718281828459045},
      {"pi", 3.141592653589793},
      {"nosuchname+1", 1.0},
      {"Abs+2", 2.0},  // names are case-sensitive: Abs is unknown
      {"1/0", HUGE_VAL},
      {"ln(0)", -HUGE_VAL},
      {"0/0", std::nan("")},
      // floor and ceil read the low word of the double: 2.5 and 3.0 have a
      // zero low word; 0.1 is 0x3FB999999999999A, low word -1717986918.
      {"floor(2.5)", 0.0},
      {"floor(-3)", 0.0},
      {"floor(0.1)", -1717986918.0},
      {"ceil(0.1)", -1717986918.0},
      // Factorials and combinations overflow past 2^32 - 1.
      {"fac(0)", 1.0},
      {"fac(5.9)", 120.0},
      {"fac(13)", HUGE_VAL},
      {"fac(4294967296)", HUGE_VAL},
      {"fac(-1)", std::nan("")},
      {"ncr(10,10)", 1.0},
      // C(30,15): the last product C(29,14)*30 = 2326762800 fits; C(31,15)
      // fits but C(30,14)*31 = 4508102925 does not; r above n/2 becomes n - r.
      {"ncr(30,15)", 155117520.0},
      {"ncr(31,15)", HUGE_VAL},
      {"ncr(31,16)", HUGE_VAL},
      {"ncr(2,5)", std::nan("")},
      {"ncr(4294967296,1)", HUGE_VAL},
      {"npr(12,12)", 479001600.0},
      {"npr(13,13)", HUGE_VAL},
  };
  for (const auto& c : cases) {
    const double v = Value(c.text);  // exact, with NaN equal to NaN
    EXPECT_TRUE(v == c.expected || (std::isnan(v) && std::isnan(c.expected)))
        << c.text << ": " << v;
  }
}

TEST_F(ExpressionTest, ErrorsStopWithTheirPosition) {
  struct Case {
    const char* text;
    long position;
  };
  const Case cases[] = {
      {"e(", 2},  {"atan2(1)", 8}, {"atan2(1,2,3)", 10}, {"sin", 3}, {"pow 2", 5}, {"(", 1},
      {"(1", 2},  {"2*", 2},       {"1+*2", 3},          {"_x", 1},  {"1)", 2},    {"3 $ 4", 3},
      {"1 2", 3},
  };
  for (const Case& c : cases) {
    const Result r = Evaluate(c.text);
    EXPECT_NE(r.kind, TE_TOK_END) << c.text;
    EXPECT_EQ(r.position, c.position) << c.text;
  }
  EXPECT_EQ(Evaluate("1 2").kind, TE_TOK_NUMBER);  // stops at the second number
  EXPECT_EQ(Evaluate("").kind, TE_TOK_ERROR);
}

TEST_F(ExpressionTest, NestingIsBoundedWithoutExhaustingTheStack) {
  auto repeat = [](const char* part, int n) {
    std::string s;
    for (int i = 0; i < n; ++i) s += part;
    return s;
  };
  EXPECT_EQ(Value(repeat("(", 100) + "1" + repeat(")", 100)), 1.0);
  EXPECT_EQ(Value(repeat("1+", 199) + "1"), 200.0);
  EXPECT_EQ(Value(repeat("-", 100000) + "2"), 2.0);  // an even count of signs
  for (const std::string& deep : {repeat("(", 100000) + "1" + repeat(")", 100000),
                                  repeat("1+", 100000) + "1", repeat("sin ", 100000) + "1"})
    EXPECT_NE(Evaluate(deep).kind, TE_TOK_END);
}

int g_calls = 0;
std::vector<double> g_trace;

double Count() { return ++g_calls; }
double Twice(double a) { return 2.0 * a; }
double Record(double a) {
  g_trace.push_back(a);
  return a;
}
double Select(double c, double a, double b) { return c != 0 ? a : b; }
double Scale(double a, void* context) { return a * *static_cast<double*>(context); }
double Sum7(double a, double b, double c, double d, double e, double f, double g) {
  return a + 10 * b + 100 * c + 1000 * d + 10000 * e + 100000 * f + 1000000 * g;
}

template <typename F>
void* Fn(F* f) {
  return reinterpret_cast<void*>(f);
}

TEST_F(ExpressionTest, CallerNamesComeFirstAndAreReadAtEvaluation) {
  double x = 3.0, first = 1.0, second = 2.0, myE = 5.0;
  const xvariable table[] = {
      {"x", &x, TE_VARIABLE, nullptr},        {"v", &first, TE_VARIABLE, nullptr},
      {"v", &second, TE_VARIABLE, nullptr},   {"e", &myE, TE_VARIABLE, nullptr},
      {"x_2", &second, TE_VARIABLE, nullptr},
  };
  EXPECT_EQ(Evaluate("v", table, 5).value, 1.0);  // front entry wins
  EXPECT_EQ(Evaluate("e", table, 5).value, 5.0);  // hides the built-in
  EXPECT_EQ(Evaluate("x_2*x", table, 5).value, 6.0);
  EXPECT_EQ(Evaluate("x2", table, 5).value, 0.0);  // exact match only
  te_state state;
  te_node* root = Parse("x*x+1", &state, table, 5);
  EXPECT_EQ(te_eval(root), 10.0);
  x = 4.0;
  EXPECT_EQ(te_eval(root), 17.0);
  te_free(root);
}

TEST_F(ExpressionTest, PureFunctionsWithConstantArgumentsFoldOnce) {
  double x = 0.0, factor = 3.0;
  const xvariable table[] = {
      {"x", &x, TE_VARIABLE, nullptr},
      {"cnt", Fn(&Count), TE_FUNCTION0 + 0 + TE_FLAG_PURE, nullptr},
      {"tick", Fn(&Count), TE_FUNCTION0 + 0, nullptr},
      {"twice", Fn(&Twice), TE_FUNCTION0 + 1 + TE_FLAG_PURE, nullptr},
      {"rec", Fn(&Record), TE_FUNCTION0 + 1 + TE_FLAG_PURE, nullptr},
      {"sel", Fn(&Select), TE_FUNCTION0 + 3 + TE_FLAG_PURE, nullptr},
      {"scale", Fn(&Scale), TE_CLOSURE0 + 1 + TE_FLAG_PURE, &factor},
      {"sum7", Fn(&Sum7), TE_FUNCTION0 + 7 + TE_FLAG_PURE, nullptr},
  };
  const int n = 8;
  // (text, calls at fold time, two evaluations, arguments traced at fold
  // and at evaluation): a pure function runs at fold time and never again;
  // without the pure flag it runs at every evaluation; a variable argument
  // (0 at fold time, 4 after) keeps the call for run time; constant arguments fold first to last,
  // while a variable first argument stops the fold and evaluation then runs
  // the arguments last to first.
  const struct {
    const char* text;
    int foldCalls;
    double first, second;
    std::vector<double> foldTrace, evalTrace;
  } cases[] = {
      {"cnt()+cnt", 2, 3.0, 3.0, {}, {}},
      {"tick+twice(2)", 0, 5.0, 6.0, {}, {}},
      {"twice(x)", 0, 8.0, 8.0, {}, {}},
      {"sel(1, rec(1), rec(2))", 0, 1.0, 1.0, {1.0, 2.0}, {}},
      {"sel(x, rec(1), rec(2))", 0, 1.0, 1.0, {}, {2.0, 1.0, 2.0, 1.0}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    g_calls = 0;
    g_trace.clear();
    x = 0.0;
    te_state state;
    te_node* root = Parse(c.text, &state, table, n);
    ASSERT_EQ(state.type, TE_TOK_END);
    x = 4.0;
    EXPECT_EQ(g_calls, c.foldCalls);
    EXPECT_EQ(g_trace, c.foldTrace);
    g_trace.clear();
    EXPECT_EQ(te_eval(root), c.first);
    EXPECT_EQ(te_eval(root), c.second);
    EXPECT_EQ(g_trace, c.evalTrace);
    EXPECT_EQ(root->type == TE_CONSTANT, c.foldCalls > 0 || !c.foldTrace.empty());
    te_free(root);
  }
  // Closures get their context; seven arguments arrive in order.
  EXPECT_EQ(Evaluate("scale(2)", table, n).value, 6.0);
  EXPECT_EQ(Evaluate("scale 2^2", table, n).value, 36.0);
  EXPECT_EQ(Evaluate("sum7(1,2,3,4,5,6,7)", table, n).value, 7654321.0);
  EXPECT_NE(Evaluate("sum7(1,2,3,4,5,6)", table, n).kind, TE_TOK_END);
}

// Makes a decimal-comma locale current: an installed German one, or one
// compiled from the system's locale sources into the build directory.
bool UseDecimalCommaLocale() {
  if (std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr) return true;
  const std::string dir = std::string(ONDREL_TEST_BINARY_DIR) + "/locales";
  const std::string command = "test -d '" + dir + "/de_DE.UTF-8' || { mkdir -p '" + dir +
                              "' && localedef -i de_DE -f UTF-8 '" + dir +
                              "/de_DE.UTF-8' >/dev/null 2>&1; }";
  // localedef may exit non-zero over mere warnings; setlocale decides.
  const int status = std::system(command.c_str());
  static_cast<void>(status);
  setenv("LOCPATH", dir.c_str(), 1);
  const bool ok = std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
  unsetenv("LOCPATH");
  return ok;
}

TEST_F(ExpressionTest, NumbersIgnoreTheProcessLocale) {
  if (!UseDecimalCommaLocale()) GTEST_SKIP() << "no decimal-comma locale available";
  // The C library itself now stops at the point.
  char* end = nullptr;
  const double plain = std::strtod("1.5", &end);
  const bool commaLocale = plain == 1.0;
  const double parsed = Value("1.5e3");
  const double small = Value("0.25+.5");
  std::setlocale(LC_ALL, "C");
  ASSERT_TRUE(commaLocale);
  EXPECT_EQ(parsed, 1500.0);
  EXPECT_EQ(small, 0.75);
}

}  // namespace
}  // namespace ONDREL2
