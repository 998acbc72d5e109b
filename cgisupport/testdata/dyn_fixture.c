/* A minimal loadable library for the dynamic-library wrapper's tests. */
int dyn_fixture_answer(void) { return 42; }
