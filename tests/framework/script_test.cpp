// Parameter scripts: results, jumps, error texts and what survives a run,
// checked against values and messages worked out by hand.

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "frame/log.h"
#include "frame/modulators.h"
#include "framework/script.h"
#include "ondrel.h"

namespace ONDREL2 {
namespace {

std::vector<std::string> g_errors;
void CaptureError(const char* message) { g_errors.push_back(message); }

class ScriptTest : public ::testing::Test {
 protected:
  void SetUp() override {
    saved_log_ = GetLogState();
    GetLogState().threshold = 7;  // error lines would only clutter the output
    saved_user_ = UserModulators();
    ClearSystemModulators();
    g_errors.clear();
    EXPECT_EQ(ondrel_set_script_error_handler(&CaptureError), 0);
  }
  void TearDown() override {
    ondrel_set_script_error_handler(nullptr);
    ClearSystemModulators();
    UserModulators() = saved_user_;
    GetLogState() = saved_log_;
  }

  static double User(const char* name) { return get_modulator_user(name); }
  static bool HasSystem(const char* name) { return SystemModulators().count(name) != 0; }

  ModulatorMap saved_user_;
  LogState saved_log_{};
};

// Scripts that stand alone: the result and the error messages, in order.
TEST_F(ScriptTest, ResultsAndErrorMessages) {
  const std::string longLine = std::string(5000, 'a') + "$123456789xyz" + std::string(5000, ' ');
  const struct {
    std::string script;
    float in, out;
    std::vector<std::string> errors;
  } cases[] = {
      {"in*2", 3.0f, 6.0f, {}},
      {"in*2\r\n\r\nout+1\r", 3.0f, 7.0f, {}},
      {"1/0", 1.0f, HUGE_VALF, {}},
      // Every line is rounded to float before the next one reads it.
      {"0.1", 0.0f, 0.1f, {}},
      {"1+2^-30\nout-1", 0.0f, 0.0f, {}},
      {"1+2^-20\nout-1", 0.0f, 0x1p-20f, {}},
      // Forward over a line to a label defined later (out = 3 at the goto);
      // a lone ">" acts on the present out; a label and a script variable of
      // one name: the label is read.
      {"in\n>skip\nout*100\n:skip\nout+1", 2.0f, 4.0f, {}},
      {"out-5\n>\nout*2", 2.0f, -6.0f, {}},
      {"#lab=7\n:lab\nlab", 0.0f, 1.0f, {}},
      // A goto beyond the last line, to exactly the line count, or to a
      // target that is no label stops the script with the value in out.
      {">5\nout+1\nout+2", 1.0f, 5.0f, {"(line 1):\n>5 (>5)"}},
      {">2\n:a", 1.0f, 2.0f, {"(line 1):\n>2 (>2)"}},
      {"in\n\n>0.5\nout+1", 1.0f, 0.5f, {"(line 2):\n>0.5 (>0)"}},
      // A bad goto expression is reported twice, the second time one line
      // further on and with its ">", and nothing after it runs.
      {"in+1\n>(\nout*100", 1.0f, 2.0f, {" (LINE 2):\n(", "( (LINE 3):\n>("}},
      // Bad lines report where the parser stopped; blank lines before them
      // count not; a blank before ":" makes an expression line.
      {"in*2\n1+*234567890123\nout+100", 3.0f, 6.0f, {"234567890 (LINE 2):\n1+*234567890123"}},
      {"\n\n(", 3.0f, 3.0f, {" (LINE 1):\n("}},
      {"in\n\n\nsin", 3.0f, 3.0f, {" (LINE 2):\nsin"}},
      {" :a", 3.0f, 3.0f, {"a (LINE 1):\n :a"}},
      // A line far longer than any message buffer keeps its whole text.
      {longLine, 8.0f, 8.0f, {"123456789 (LINE 1):\n" + longLine}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.script.substr(0, 40));
    g_errors.clear();
    ClearSystemModulators();
    EXPECT_EQ(RunScript(c.script.c_str(), c.in), c.out);
    EXPECT_EQ(g_errors, c.errors);
  }
  EXPECT_EQ(User("skip"), 3.0);
  // Nothing but line ends: the input comes back, in and out are set.
  EXPECT_EQ(RunScript("\n\r\n\r", 4.5f), 4.5f);
  EXPECT_EQ(User("in"), 4.5);
  EXPECT_EQ(User("out"), 4.5);
  EXPECT_EQ(RunScript("0.1", 0.0f), 0.1f);
  EXPECT_EQ(User("out"), 0.10000000149011612);
  // Without a handler errors are dropped, nothing crashes.
  g_errors.clear();
  EXPECT_EQ(ondrel_set_script_error_handler(nullptr), 0);
  EXPECT_EQ(RunScript("in\n(", 2.0f), 2.0f);
  EXPECT_TRUE(g_errors.empty());
}

TEST_F(ScriptTest, BackwardGotosLoopAndAskForASecondPass) {
  // Count k up to 5, then fall through with a negative value.
  EXPECT_EQ(RunScript("#k=0\n:top\n#k=k+1\n>if(lt(k,5),top,-1)\nk*10", 0.0f), 50.0f);
  EXPECT_EQ(SystemModulators()["k"], 5.0);
  EXPECT_TRUE(TwoPassFlag());
  ClearSystemModulators();
  EXPECT_FALSE(TwoPassFlag());
  // A bad definition reports and the script goes on; the variable keeps
  // its value.
  SetSystemModulator("x", 4.0);
  EXPECT_EQ(RunScript("#x=1+\nx+1", 0.0f), 5.0f);
  EXPECT_EQ(g_errors, std::vector<std::string>{" (LINE 1):\n1+"});
}

TEST_F(ScriptTest, DefinitionsLiveInTheSystemStoreUntilCleared) {
  // A definition also sets out; an empty one copies out.
  EXPECT_EQ(RunScript("#x=in*2", 5.0f), 10.0f);
  EXPECT_EQ(RunScript("#z=\nz+1", 5.0f), 6.0f);
  EXPECT_EQ(SystemModulators()["x"], 10.0);
  EXPECT_EQ(SystemModulators()["z"], 5.0);

  // A later script, such as the next effect's, reads them.
  EXPECT_EQ(RunScript("x+1", 0.0f), 11.0f);
  ClearSystemModulators();
  EXPECT_EQ(RunScript("x+1", 0.0f), 1.0f);
  EXPECT_FALSE(HasSystem("x"));

  // A declaration creates at 0 but never overwrites.
  EXPECT_EQ(RunScript("#fresh\nfresh+1", 0.0f), 1.0f);
  EXPECT_TRUE(HasSystem("fresh"));
  SetSystemModulator("kept", 4.0);
  EXPECT_EQ(RunScript("#kept\nkept", 0.0f), 4.0f);

  // A name in both stores: reads see the user value, the definition
  // writes the system one.
  set_modulator_user("dual", 7.0);
  EXPECT_EQ(RunScript("#dual=1\ndual", 0.0f), 7.0f);
  EXPECT_EQ(SystemModulators()["dual"], 1.0);
  EXPECT_EQ(User("dual"), 7.0);

  // A definition named like a function writes the variable, not the code,
  // and the variable then hides the function.
  EXPECT_EQ(RunScript("#if=3\nif+1", 0.0f), 4.0f);
  EXPECT_EQ(SystemModulators()["if"], 3.0);
}

TEST_F(ScriptTest, MemoryFunctionsRunInFoldAndEvaluationOrder) {
  // With a variable condition the branches run last to first at evaluation.
  EXPECT_EQ(RunScript("#c=1\nif(c,put(0,1),put(0,2))\nget(0)", 0.0f), 1.0f);
  // With constant arguments folding runs them first to last.
  EXPECT_EQ(RunScript("if(1,put(0,1),put(0,2))\nget(0)", 0.0f), 2.0f);
  EXPECT_EQ(ScriptMemory()[0], 2.0);
}

TEST_F(ScriptTest, GearPriceExampleBypassesOrHalves) {
  const char* script =
      "#GV_SCRIPTVERSION=3\n#low=lt(GEAR_PRICE,420000)\n#GV_FXBYPASSED=low\n"
      ">if(low,done,0-1)\nin*0.5\n:done";
  DestroyScriptEngine();  // twice, then rebuilt by the next run
  DestroyScriptEngine();
  set_modulator_user("GEAR_PRICE", 410000.0);
  EXPECT_EQ(RunScript(script, 3.0f), 5.0f);  // out holds the goto's value
  EXPECT_EQ(SystemModulators()["GV_FXBYPASSED"], 1.0);
  EXPECT_FALSE(TwoPassFlag());

  ClearSystemModulators();
  set_modulator_user("GEAR_PRICE", 450000.0);
  EXPECT_EQ(RunScript(script, 3.0f), 1.5f);
  EXPECT_EQ(SystemModulators()["GV_FXBYPASSED"], 0.0);
  EXPECT_EQ(SystemModulators()["GV_SCRIPTVERSION"], 3.0);
  EXPECT_TRUE(TwoPassFlag());
  EXPECT_TRUE(g_errors.empty());
}

}  // namespace
}  // namespace ONDREL2
