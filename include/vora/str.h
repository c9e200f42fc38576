/* String utilities over zero-terminated byte strings and null-ended string arrays,
 * plus a process-wide table of shared, reference-counted strings (not locked: callers keep to
 * one thread or to the front end's lock). What STR_save, STR_save_n, STR_more and STR_parse return
 * is allocated with malloc and freed by the caller with free. */
#ifndef VORA_STR_H
#define VORA_STR_H

#include <vora/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/* h = h * 33 + c over the bytes as signed chars, in 32-bit unsigned arithmetic; h mod m.
 * Null or empty text gives 0. */
VORA_API unsigned int STR_hash(const char* text, unsigned int m);
/* Shared strings: define returns the stored copy (count + 1), null on allocation failure;
 * undefine lowers the count and frees at zero; unknown texts are ignored; always 0. */
VORA_API char* STR_define(const char* text);
VORA_API int STR_undefine(const char* text);
/* STR_undefine on every entry up to the null one, then free(array); null is ignored. */
VORA_API void STR_undefine_array(char** array);

VORA_API int STR_compare(const char* a, const char* b);
/* At most n bytes; for n <= 1 the first bytes are always compared (deliberate). */
VORA_API int STR_n_compare(const char* a, const char* b, int n);
VORA_API int STR_length(const char* text);
/* Resizes text to n + 1 bytes with a terminator at n; a null text gets an empty string of n + 1. */
VORA_API char* STR_more(char* text, int n);
VORA_API char* STR_save(const char* text);
/* Concatenation of count string arguments; count < 1 gives "". */
VORA_API char* STR_save_n(int count, ...);
/* Text after the last '.', or null (a '.' in a directory name counts too). */
VORA_API char* STR_extension(const char* text);
/* Cuts text in place at its last '.'; returns text. */
VORA_API char* STR_root(char* text);
/* Text after the last '/', or text itself. */
VORA_API char* STR_tail(const char* text);
/* Cuts text in place at its last '/' and returns it; null when there is no '/'. A run of
 * several '/' before the tail is cut at its first one ("a//b" gives "a"), and a name whose only
 * '/' is the first byte ("/b") keeps that '/' ("/"), so the head stays a usable directory. */
VORA_API char* STR_head(char* text);
VORA_API char* STR_skip_space(const char* text);
/* First white-space byte after the first byte, or the terminator; null or "" returned as is. */
VORA_API char* STR_find_space(const char* text);
VORA_API int STR_is_numeric(const char* text);
/* Splits text in place at white space and returns a new null-ended array of pointers into it
 * (free the array, not the words); "" gives an empty array; null on allocation failure. */
VORA_API char** STR_parse(char* text);
/* Address of the first slot equal to text, or null. */
VORA_API char** STR_find_string(char** array, const char* text);
/* Heapsort in ascending STR_compare order. */
VORA_API void STR_sort(char** array);

#ifdef __cplusplus
}
#endif

#endif
