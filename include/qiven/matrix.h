/*
 * qiven/matrix.h - dense matrices of doubles, and a text codec on top of them.
 *
 * The codec hides text from a casual reader. It is not encryption: the key can be computed from a few texts
 * and their encodings, equal blocks of eight bytes give equal encodings, and a changed encoding cannot be
 * detected. Use sealed packets (qiven/packet.h) for secrets.
 *
 * Nothing here logs or keeps state; all functions are reentrant on separate matrices. Results of the
 * arithmetic are the same bits on every machine: plain double operations in a fixed order, never fused.
 *
 * Key data of your own
 *
 *   At build time   The program matrix-keygen in the source tree draws key matrix, inverse and alphabet from
 *                   the system's random numbers, checks them, and writes them as a source file:
 *                       matrix-keygen > src/matrix/key_data.cpp
 *                   All peers then need libraries built with that same file.
 *   At run time     pmtr64 and pmti64 may point at matrices of the program's own, 8 by 8, which it keeps
 *                   alive; the alphabet stays the built-in one:
 *                       static MATRIX64 stKey = {8, 8, {...}}, stInverse = {8, 8, {0}};
 *                       if (MatrixInversion((MATRIX *)&stKey, (MATRIX *)&stInverse) != 0)
 *                           return -1;  // take another key
 *                       pmtr64 = (MATRIX *)&stKey;
 *                       pmti64 = (MATRIX *)&stInverse;
 *                   Both pointers are read without a lock: set them before threads use the codec.
 *
 *   A text is decoded exactly if, for all byte values 0 to 255 of a block, each of the eight products with
 * the key is a whole number from -2048 to 2047, and the product of these with the inverse is less than 0.01
 *   below and less than 0.99 above the byte. The first condition holds if the entries are integers, and the
 *   positive ones of each column sum up to at most 8 and the negative ones to at least -8. The second holds
 * if the determinant is 1 or -1 as well, because the inverse then has integer entries. Other keys lose text,
 * but do no other harm. MatrixInversion() refuses about one in a hundred of the keys that meet all these
 * conditions with -2, because its elimination reaches a pivot of at most 0.0001: always check its result.
 */
#ifndef QIVEN_MATRIX_H
#define QIVEN_MATRIX_H

#include <qiven/log.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * A matrix: the two counts followed by rows * cols IEEE doubles, row-major, in one block without padding.
 * Element (i, j) is elem[i * cols + j].
 */
typedef struct MATRIX {
    int32_t rows;   /**< at least 1 */
    int32_t cols;   /**< at least 1 */
    double elem[1]; /**< rows * cols elements */
} MATRIX;

/** A matrix of 8 by 8 elements as a static object: same layout as MATRIX, 520 bytes. */
typedef struct MATRIX64 {
    int32_t rows;
    int32_t cols;
    double elem[64];
} MATRIX64;

/**
 * Allocates a matrix with the counts set and the elements not initialised.
 * @return the matrix, freed with MatrixFree(); null if a count is below 1, the size overflows, or without
 * memory
 */
QIVEN_API MATRIX *MatrixAlloc(int rows, int cols);
/** Frees a matrix from MatrixAlloc(); null is ignored. */
QIVEN_API void MatrixFree(MATRIX *pMatrix);

/*
 * Operations. The result matrix is the caller's and has the right dimensions already; it is untouched on
 * every failure. Results: 0 done; -1 a matrix is null; -2 dimensions do not fit, a matrix is not square, or
 * it is singular; -3 no working memory.
 */

/** C = A + B, all of the same dimensions; C may be A or B. @return 0, -1 or -2 */
QIVEN_API int MatrixAddition(const MATRIX *A, const MATRIX *B, MATRIX *C);
/** C = A - B, all of the same dimensions; C may be A or B. @return 0, -1 or -2 */
QIVEN_API int MatrixSubtraction(const MATRIX *A, const MATRIX *B, MATRIX *C);
/**
 * B = A transposed, both square of the same size; B is not A.
 * @return 0, -1 (also for a size below 1) or -2
 */
QIVEN_API int MatrixTranspose(const MATRIX *A, MATRIX *B);
/** C = A * B, C being neither A nor B; sums in order of increasing index. @return 0, -1 or -2 */
QIVEN_API int MatrixMultiply(const MATRIX *A, const MATRIX *B, MATRIX *C);
/**
 * B = A to the power -1 by Gauss-Jordan elimination with partial pivoting; B may be A. A pivot of at most
 * 0.0001 (compared in extended precision: the double nearest to 0.0001 passes), or one that is not a number,
 * counts as singular. Takes working memory for n by 2n elements and one row of 2n.
 * @return 0, -1, -2 or -3
 */
QIVEN_API int MatrixInversion(const MATRIX *A, MATRIX *B);

/** The key matrix K and its inverse. Peers that exchange encoded texts hold the same. */
QIVEN_API extern MATRIX64 mtrx64;
QIVEN_API extern MATRIX64 mtri64;
/** How the codec reaches K and its inverse; a program may point them at 8 by 8 matrices of its own. */
QIVEN_API extern MATRIX *pmtr64;
QIVEN_API extern MATRIX *pmti64;
/** The alphabet: the character of each 6-bit digit, then a NUL. */
QIVEN_API extern const char mapd2c[65];
/** The digit of each character code 0 to 127; -1 for codes that are not in the alphabet. */
QIVEN_API extern const signed char mapc2d[128];

/**
 * Encodes a text of at most 32760 bytes, which may hold any byte but NUL. With L for its length rounded up to
 * a multiple of 8, the encoding has 2 * L characters, all of the alphabet.
 * @param szText the text; not read beyond 32761 bytes
 * @param szOutput must hold 2 * L + 1 bytes
 * @return characters written without the NUL, 2 * L; 0 for an empty text, szOutput being empty then; -1 on a
 *         null argument, a longer text, a key that is not 8 by 8, or without memory, szOutput being unchanged
 */
QIVEN_API int MatrixEncode(const char *szText, char *szOutput);
/**
 * Decodes an encoded text. A last odd character is ignored. Any input is safe to decode. The
 * function cannot tell whether it was encoded with the present key.
 * @param szEncoded the encoded text, of any length
 * @param szOutput must hold half the input's length and one byte more
 * @return length of the decoded text up to its first NUL; 0 for an empty input, szOutput being empty then; -1
 *         on a null argument, an input whose number of character pairs is not a positive multiple of 8 or
 * that is longer than INT_MAX, a character outside the alphabet, a key that is not 8 by 8, or without memory,
 * szOutput being unchanged
 */
QIVEN_API int MatrixDecode(const char *szEncoded, char *szOutput);

#ifdef __cplusplus
}
#endif

#endif
