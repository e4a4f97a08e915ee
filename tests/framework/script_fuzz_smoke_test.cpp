// Runs the two fuzz bodies over a few thousand deterministic inputs, built
// from the languages' own tokens and by mutating sample lines, so that the
// sanitizer build exercises them on every CI run.

#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/script_fuzz_targets.h"

namespace ONDREL2 {
namespace {

const char* const kExpressionTokens[] = {
    "1",     "2.5",   ".5",     "1e3", "0",   "4294967296", "x",     "y",    "e",     "pi", "sin",
    "abs",   "atan2", "pow",    "fac", "ncr", "npr",        "floor", "ceil", "log10", "ln", "twice",
    "scale", "count", "nosuch", "(",   ")",   ",",          "+",     "-",    "*",     "/",  "%",
    "^",     " ",     "\t",     "_",   "$",   ".",          "e(",    "1 2",  "((",    "))",
};

const char* const kScriptTokens[] = {
    "\n",  "\r\n", "#",   "=",      ":",    "in",         "out",
    "lab", "#v=",  "#w",  ":lab\n", "v",    "w",          "GV_FXBYPASSED",
    "if(", "lt(",  "eq(", "rnd(",   "not ", "GEAR_PRICE", "#GV_SCRIPTVERSION=3\n",
};

const char* const kSeeds[] = {
    "in*pow(10,GENRE/20)",
    "2^3^2+-2^2*atan2(1,2)",
    "sin 2^2,fac(12)/ncr(30,15)",
    "#low=lt(GEAR_PRICE,420000)\n#GV_FXBYPASSED=low\nin*0.5\n:done",
    "#x=in*2\n\nout+x\n:a\nfloor(2.5)+ceil(x)",
};

std::string RandomTokens(std::mt19937& rng, bool script) {
  std::uniform_int_distribution<int> length(1, 30);
  std::uniform_int_distribution<size_t> pickExpr(0, std::size(kExpressionTokens) - 1);
  std::uniform_int_distribution<size_t> pickScript(0, std::size(kScriptTokens) - 1);
  std::string text;
  const int n = length(rng);
  for (int i = 0; i < n; ++i) {
    if (script && rng() % 3 == 0)
      text += kScriptTokens[pickScript(rng)];
    else
      text += kExpressionTokens[pickExpr(rng)];
  }
  return text;
}

std::string Mutate(std::mt19937& rng, std::string text) {
  const int edits = 1 + static_cast<int>(rng() % 4);
  for (int i = 0; i < edits; ++i) {
    const size_t at = text.empty() ? 0 : rng() % (text.size() + 1);
    const char byte = static_cast<char>(rng() % 256);
    switch (rng() % 3) {
      case 0: text.insert(at, 1, byte); break;
      case 1:
        if (at < text.size()) text.erase(at, 1);
        break;
      default:
        if (at < text.size()) text[at] = byte;
        break;
    }
  }
  return text;
}

bool Feed(bool (*body)(const uint8_t*, size_t), const std::string& text) {
  return body(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

TEST(ScriptFuzzSmokeTest, ExpressionInputsKeepTheirInvariants) {
  std::mt19937 rng(20240611u);
  for (int i = 0; i < 3000; ++i) {
    const std::string text =
        i % 2 == 0 ? RandomTokens(rng, false) : Mutate(rng, kSeeds[rng() % std::size(kSeeds)]);
    ASSERT_TRUE(Feed(ondrel_fuzz::FuzzExpression, text)) << "input: '" << text << "'";
  }
  // Deep and long inputs, which a mutator reaches only slowly.
  ASSERT_TRUE(Feed(ondrel_fuzz::FuzzExpression, std::string(20000, '(') + "1"));
  ASSERT_TRUE(Feed(ondrel_fuzz::FuzzExpression, std::string(20000, '-') + "1"));
}

TEST(ScriptFuzzSmokeTest, ScriptInputsRunWithoutFindings) {
  std::mt19937 rng(777u);
  int runs = 0;
  for (int i = 0; i < 2000; ++i) {
    const std::string text =
        i % 2 == 0 ? RandomTokens(rng, true) : Mutate(rng, kSeeds[rng() % std::size(kSeeds)]);
    if (!ondrel_fuzz::ScriptInputAccepted(text)) continue;
    ASSERT_TRUE(Feed(ondrel_fuzz::FuzzScript, text)) << "input: '" << text << "'";
    ++runs;
  }
  // The generator rarely produces a goto or memory function name.
  EXPECT_GT(runs, 1800);
}

}  // namespace
}  // namespace ONDREL2
