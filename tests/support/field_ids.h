/* The field ids that the tests' dictionaries share: X(constant, id). For C and C++. */
#ifndef MD_TESTS_SUPPORT_FIELD_IDS_H
#define MD_TESTS_SUPPORT_FIELD_IDS_H

/* Two fields of each value type, the field of the largest id (an INT), and two ids in no row, below and above it. */
#define MD_TEST_FIELD_IDS(X) \
  X(kChar, 10)               \
  X(kChar2, 11)              \
  X(kInt, 300)               \
  X(kInt2, 301)              \
  X(kInt64, 20)              \
  X(kInt64b, 21)             \
  X(kFloat, 40)              \
  X(kFloat2, 41)             \
  X(kDouble, 22)             \
  X(kDouble2, 23)            \
  X(kString, 60)             \
  X(kString2, 61)            \
  X(kBuffer, 70)             \
  X(kBuffer2, 71)            \
  X(kDateTime, 80)           \
  X(kDateTime2, 81)          \
  X(kEpochNS, 90)            \
  X(kEpochNS2, 91)           \
  X(kHigh, 40000)            \
  X(kUnknown, 999)           \
  X(kBeyond, 50000)

#define MD_TEST_ENUMERATOR(name, id) name = id,

#endif
