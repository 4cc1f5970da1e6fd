// Key data of the text codec: the key matrix, its inverse, and the alphabet. Made by
//   matrix-keygen > src/matrix/key_data.cpp
// from the system's random numbers, and checked there: the two matrices are exact inverses, products
// with bytes fit 12 signed bits, and no row or column is sparse. Not for editing: whoever wants other
// data makes a new file, for all peers that exchange encoded texts.
#include <qiven/matrix.h>

// clang-format off
MATRIX64 mtrx64 = {8, 8, {
      2,   5,  -3,  -4,  -2,   1,  -2,  -2,
      3,   1,  -1,   2,   0,   0,   0,  -1,
     -6,  -4,   3,   2,   5,   0,   4,   0,
      0,  -1,  -2,  -1,   0,  -3,   0,   2,
      2,   0,  -1,   2,  -2,  -2,   2,  -4,
     -1,   0,   2,   1,   2,   3,   0,   0,
     -1,  -1,   0,  -1,   1,   0,  -1,   3,
      1,   0,   0,  -1,  -1,   2,  -2,   1,
}};
MATRIX64 mtri64 = {8, 8, {
     -1, -13,  -9,  20,  11,  31,  -2,  -5,
      1,  -1,  -1,  -3,   5,   2,  10,  -3,
     -2,  -6,  -4,  14,  -1,  14, -14,   0,
      1,  12,   8, -19,  -9, -28,   4,   4,
     -2,   4,   3,   4, -13,  -8, -22,   6,
      2,  -7,  -5,   1,  16,  16,  22,  -7,
      3, -27, -19,  21,  43,  62,  43, -20,
      2, -11,  -8,   5,  21,  25,  26, -10,
}};
const char mapd2c[65] = "RMJpX3i+S2DE-egvCy7ujGUwIxbNoZQ9qHLnKrk4B8t60ca5sPVfFYAlTdmWz1hO";
const signed char mapc2d[128] = {
     -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,
     -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,
     -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,  -1,   7,  -1,  12,  -1,  -1,
     44,  61,   9,   5,  39,  47,  43,  18,  41,  31,  -1,  -1,  -1,  -1,  -1,  -1,
     -1,  54,  40,  16,  10,  11,  52,  21,  33,  24,   2,  36,  34,   1,  27,  63,
     49,  30,   0,   8,  56,  22,  50,  59,   4,  53,  29,  -1,  -1,  -1,  -1,  -1,
     -1,  46,  26,  45,  57,  13,  51,  14,  62,   6,  20,  38,  55,  58,  35,  28,
      3,  32,  37,  48,  42,  19,  15,  23,  25,  17,  60,  -1,  -1,  -1,  -1,  -1,
};
// clang-format on

MATRIX *pmtr64 = reinterpret_cast<MATRIX *>(&mtrx64);
MATRIX *pmti64 = reinterpret_cast<MATRIX *>(&mtri64);
