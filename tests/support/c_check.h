/* Checks of tests that are written in C. */
#ifndef MD_TESTS_SUPPORT_C_CHECK_H
#define MD_TESTS_SUPPORT_C_CHECK_H

#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

static unsigned g_passed = 0;
static unsigned g_failed = 0;
static const char* g_case = "";

static void check(bool holds, const char* condition, const char* file, int line) {
  if (holds) {
    ++g_passed;
    return;
  }
  ++g_failed;
  printf("%s:%d: failed: %s%s%s\n", file, line, condition, *g_case != '\0' ? ", case " : "", g_case);
}

#define CHECK(condition) check((condition), #condition, __FILE__, __LINE__)
#define COUNT_OF(array) (sizeof(array) / sizeof(array)[0])

/* The result of main(). */
static int reportChecks(void) {
  printf("%u passed, %u failed\n", g_passed, g_failed);
  return g_failed == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}

#endif
