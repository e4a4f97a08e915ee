// Expression evaluator: one line of text such as `in*pow(10,GENRE/20)` is
// parsed into a small tree over doubles, its constant parts are folded, the
// tree is computed and thrown away.
//
// Grammar, loosest binding first, every binary rule left-associative:
//   list   = expr {"," expr}            (the comma yields its right side)
//   expr   = term {("+"|"-") term}
//   term   = factor {("*"|"/"|"%") factor}
//   factor = power {"^" power}          (so 2^3^2 is 64)
//   power  = {"+"|"-"} base             (so -2^2 is 4)
//   base   = number | variable | function | "(" list ")"
// A function of one argument takes a power without parentheses (`sin 2^2`
// is the square of sin 2); functions of two or more need "(" args ")".
//
// Names are looked up first in the caller's table (front to back, exact
// match), then in the built-in table (binary search). A name found nowhere
// is not an error: it reads a shared 0.0. Numbers are read with the "C"
// number syntax whatever the process locale says.
//
// Nesting of parentheses and arguments and the depth of the tree are
// limited to kMaxNesting levels; deeper input is a parse error, so that a
// hostile line cannot exhaust the stack of the calling thread.
//
// Bad input never throws and is never reported from here: te_parse leaves
// the outcome in the state's token kind and the stop position in `next`.
// Not real-time safe: parsing allocates. A tree lives for one line on one
// thread; the number-parsing locale and the shared zero are process-wide.
#pragma once

#include <cstdint>

#include "ondrel.h"

namespace ONDREL2 {

// Node kinds, in the low five bits of `type`.
enum TeNodeKind {
  TE_VARIABLE = 0,
  TE_CONSTANT = 1,
  TE_FUNCTION0 = 8,   // TE_FUNCTION0 + n: function of n arguments, n <= 7
  TE_CLOSURE0 = 16,   // TE_CLOSURE0 + n: function of n arguments + context
  TE_FLAG_PURE = 32,  // no state: may run at compile time
};

// Token kinds of the scanner. A function name's token has the type of its
// table entry instead (pure flag included).
enum TeToken {
  TE_TOK_NONE = 24,
  TE_TOK_ERROR = 25,
  TE_TOK_END = 26,
  TE_TOK_COMMA = 27,
  TE_TOK_OPEN = 28,
  TE_TOK_CLOSE = 29,
  TE_TOK_NUMBER = 30,
  TE_TOK_VARIABLE = 31,
  TE_TOK_INFIX = 32,
};

constexpr int kTeMaxArity = 7;
constexpr int kMaxNesting = 256;

struct te_node {
  int32_t type;
  union {
    double value;          // TE_CONSTANT
    const double* bound;   // TE_VARIABLE
    const void* function;  // functions and closures
  };
  te_node* children[kTeMaxArity];  // as many as the arity says, rest null
  void* context;                   // closures only
  int depth;                       // levels of the subtree, 1 for a leaf
};

struct te_state {
  const char* start;  // the text; filled in by the caller
  const char* next;   // next character to read
  int type;           // current token kind
  union {
    double value;
    const double* bound;
    const void* function;
  };
  void* context;
  const xvariable* lookup;  // caller's names; filled in by the caller
  int lookup_len;
  int nesting;  // parser's own recursion level
};

// Arity of a function or closure type (0 for anything else).
int te_arity(int type);

// Discards any number-parsing locale and creates a new one.
void te_init();
// Frees the number-parsing locale.
void te_uninit();

// Parses the whole text of `state` (start, lookup and lookup_len filled in).
// Always returns a tree that the caller frees; state->type is TE_TOK_END
// when the whole text was consumed, anything else is an error.
te_node* te_parse(te_state* state);
// Folds constant subtrees of pure functions in place.
void te_fold(te_node* node);
// Computes the tree; NaN for a null node.
double te_eval(const te_node* node);
// Frees the children, last to first, then the node. Null is ignored.
void te_free(te_node* node);

// Built-in function table, sorted by name for binary search.
const xvariable* te_builtins(int* count);

}  // namespace ONDREL2
