#pragma once

// Included before everything else in a build whose sources carry switches for mutants. No mutant is active unless the
// environment variable CORVANE_MUTANT names one; with CORVANE_MUTANTS_REACHED, the numbers of all switches that the
// program came by are appended to that file when it ends.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

namespace mutation {

inline constexpr int most = 1 << 16;
inline unsigned char reached[most];

inline int chosen() {
  const char* text = std::getenv("CORVANE_MUTANT");
  return text == nullptr ? 0 : std::atoi(text);
}
inline const int current = chosen();

class Recorder {
 public:
  ~Recorder() {
    const char* path = std::getenv("CORVANE_MUTANTS_REACHED");
    std::FILE* file = path == nullptr ? nullptr : std::fopen(path, "a");
    if (file == nullptr) {
      return;
    }
    for (int number = 0; number < most; ++number) {
      if (reached[number] != 0) {
        std::fprintf(file, "%d\n", number);
      }
    }
    std::fclose(file);
  }
};
inline const Recorder recorder;

inline bool active(int number) {
  reached[number] = 1;
  return current == number;
}

template <typename T>
T number(int mutant, T value) {
  return active(mutant) ? static_cast<T>(value + 1) : value;
}

inline bool negated(int mutant, bool value) { return active(mutant) != value; }

/// What is added to or taken off something: the other way round under the mutant, whatever the width.
template <typename T>
auto swapped(int mutant, const T& value) {
  static_assert(std::is_integral_v<T>);
  return active(mutant) ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

/// `Not<N>{}->*x` is `!x`, and binds its operand as that does.
template <int N>
struct Not {};
template <int N, typename T>
bool operator->*(Not<N>, const T& value) {
  return negated(N, !static_cast<bool>(value));
}

// `a == Equal<N>{} == b` is `a == b`: with the operator on both sides, the switch leaves every precedence as it was.
template <typename A, typename Switch>
struct Left {
  const A& value;
};

#define CORVANE_MUTATED(Name, op, mutated)                  \
  template <int N>                                          \
  struct Name {};                                           \
  template <typename A, int N>                              \
  Left<A, Name<N>> operator op(const A& left, Name<N>) {    \
    return {left};                                          \
  }                                                         \
  template <typename A, int N, typename B>                  \
  auto operator op(Left<A, Name<N>> left, const B& right) { \
    using Result = decltype(left.value op right);           \
    if (active(N)) {                                        \
      return static_cast<Result>(left.value mutated right); \
    }                                                       \
    return static_cast<Result>(left.value op right);        \
  }

CORVANE_MUTATED(Equal, ==, !=)
CORVANE_MUTATED(Unequal, !=, ==)
CORVANE_MUTATED(Plus, +, -)
CORVANE_MUTATED(Minus, -, +)
CORVANE_MUTATED(Times, *, /)
CORVANE_MUTATED(Divided, /, *)
CORVANE_MUTATED(Rest, %, *)
CORVANE_MUTATED(And, &, |)
CORVANE_MUTATED(Or, |, &)
CORVANE_MUTATED(ShiftLeft, <<, >>)
CORVANE_MUTATED(ShiftRight, >>, <<)
#undef CORVANE_MUTATED

/// Two mutants: the bound itself counts otherwise, and the comparison is the other way round.
#define CORVANE_COMPARED(Name, op, bound, opposite)                  \
  template <int N>                                                   \
  struct Name {};                                                    \
  template <typename A, int N>                                       \
  Left<A, Name<N>> operator op(const A& left, Name<N>) {             \
    return {left};                                                   \
  }                                                                  \
  template <typename A, int N, typename B>                           \
  bool operator op(Left<A, Name<N>> left, const B& right) {          \
    const bool turned = active(N + 1);                               \
    if (active(N)) {                                                 \
      return left.value bound right;                                 \
    }                                                                \
    return turned ? left.value opposite right : left.value op right; \
  }

CORVANE_COMPARED(Less, <, <=, >=)
CORVANE_COMPARED(LessEqual, <=, <, >)
CORVANE_COMPARED(Greater, >, >=, <=)
CORVANE_COMPARED(GreaterEqual, >=, >, <)
#undef CORVANE_COMPARED

}  // namespace mutation
