// A library that loads and is no agent.
extern "C" int somethingElse();
extern "C" int somethingElse() { return 0; }
