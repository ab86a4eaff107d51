/*
 * Text parsing and escaping: calendar and group identifiers, iCalendar and
 * XML output escaping, argument strings and lists, and the in-place web
 * decoders.
 *
 * Strings are NUL-terminated bytes. Character classes are those of the C
 * locale (ASCII), whatever locale the caller set, except where a function
 * says it uses the C library under the current locale.
 */
#ifndef ORVUTIL_CAL_PARSEUTIL_H
#define ORVUTIL_CAL_PARSEUTIL_H

#include "orv_defs.h"
#include "platform/array.h"
#include "platform/prot.h"

ORV_BEGIN_DECLS

/* ---------------------------------------------------------------------
 * Calendar identifiers: "uid", "uid@domain", "uid@domain:suffix",
 * "uid:suffix".
 *
 * Calid characters: 0-9 A-Z a-z _ - . @ ' % / !   (not ':' nor space)
 * Group characters: 0-9 A-Z a-z _ - . and space
 * Bytes 0x80 and above are in neither set.
 *
 * Predicates return 1 or 0. The status functions return 0, or
 * CAL_PARSEUTIL_E_INVALIDARG for a bad argument or an invalid identifier,
 * or CAL_PARSEUTIL_E_OUTOFMEMORY. Output string pointers must point to NULL
 * on entry; new strings are NSPR strings, freed with PL_strfree. On failure
 * an output stays NULL, except in cal_parseutil_create_calid.
 * Nothing here logs.
 * ------------------------------------------------------------------- */

/* The bit patterns 0x80070057 and 0x8007000E as int (see orv_defs.h). */
#define CAL_PARSEUTIL_E_INVALIDARG  ORV_E_INVALIDARG
#define CAL_PARSEUTIL_E_OUTOFMEMORY ORV_E_OUTOFMEMORY

ORV_API int cal_parseutil_isNotAllowableGroupIDChar(char c) ORV_NOEXCEPT;
/* 1 when s is non-NULL, non-empty and made of group characters only. */
ORV_API int cal_parseutil_isValidGroupID(const char *s) ORV_NOEXCEPT;
ORV_API int cal_parseutil_isNotAllowableCalidChar(char c) ORV_NOEXCEPT;
/* 1 when s is non-NULL, non-empty and made of calid characters, with at
 * most one ':' anywhere (the structure is checked by
 * cal_parseutil_validate_calid_for_cld). */
ORV_API int cal_parseutil_isValidCalid(const char *s) ORV_NOEXCEPT;
/* Removes every non-calid byte from *calid in place, ':' included; 1 when
 * anything is left, 0 when the result is empty or calid / *calid is NULL. */
ORV_API int cal_parseutil_validate_calid(char **calid) ORV_NOEXCEPT;
/* Structural check only (first '@' and first ':'); sets *valid to 1 or 0 and
 * returns 0, or CAL_PARSEUTIL_E_INVALIDARG when valid is NULL. A NULL calid
 * is invalid. */
ORV_API int cal_parseutil_validate_calid_for_cld(const char *calid, int *valid) ORV_NOEXCEPT;
/* Everything before the first ':' ("u@d" for "u@d:s"), or the whole calid. */
ORV_API int cal_parseutil_get_uid_from_calid(const char *calid, char **uid) ORV_NOEXCEPT;
/* Everything after '@' up to and including the first ':' ("d:" for
 * "u@d:s", kept so for callers that compare domains), or after '@' to the
 * end; *domain stays NULL (status 0) when there is no '@'. */
ORV_API int cal_parseutil_get_domain_from_calid(const char *calid, char **domain) ORV_NOEXCEPT;
/* Everything after the first ':'; *suffix stays NULL (status 0) without one. */
ORV_API int cal_parseutil_get_suffix_from_calid(const char *calid, char **suffix) ORV_NOEXCEPT;
/* Concatenates the non-NULL parts into *calid with no delimiter added (pass
 * "@domain" and ":suffix" to get them), then validates the result. *flag is
 * set to 0 and never to anything else. When the built calid is invalid the
 * status is CAL_PARSEUTIL_E_INVALIDARG and the string stays in *calid for
 * the caller to free. */
ORV_API int cal_parseutil_create_calid(const char *uid, const char *domain, const char *suffix, char **calid,
                                       int *flag) ORV_NOEXCEPT;

/* ---------------------------------------------------------------------
 * iCalendar and XML output escaping into a protstream.
 *
 * Every byte goes through the stream's put rule, so once the stream's error
 * or end-of-stream flag is set the rest is silently dropped; write errors
 * are not reported here. Bytes 0x80 and above are written unchanged and
 * never cause a fold.
 *
 *   input   print_char  print_xml_char  ical_es  ical_no_es
 *   BS      \b          \b              \b       \b
 *   LF      \n          &#10;           \n       \n
 *   FF      \f          \f              \f       \f
 *   CR      \r          &#13;           \r       \r
 *   '       \'          '               '        '
 *   ,       ,           ,               \,       ,
 *   ;       ;           ;               \;       ;
 *   &       &           &#38;           &        &
 *   <       <           &#60;           <        <
 *   >       >           &#62;           >        >
 *   \       \\          \\              \\       \\
 *
 * iCalendar folding: before a character, when the column counter is above
 * 73, LF and one space are written and the counter restarts at 1. The
 * string writers start the counter at the number of bytes behind the last
 * LF still in the stream's buffer (or behind its start), add 1 for every
 * byte, and the character writers add 1 more for an escaped character.
 * After a flush the buffer is empty, so the column restarts from there.
 * ------------------------------------------------------------------- */

/* Character writers: 1 when s (or column) is NULL, else 0. */
ORV_API int cal_parseutil_print_char(char c, struct protstream *s) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_xml_char(char c, struct protstream *s) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_char_ical_es(char c, struct protstream *s, int *column) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_char_ical_no_es(char c, struct protstream *s, int *column) ORV_NOEXCEPT;
/* Folds by the column found in the buffer, then puts c raw; always 0. */
ORV_API int cal_parseutil_print_char_ical(struct protstream *s, char c) ORV_NOEXCEPT;
/* Puts c raw; always 0. */
ORV_API int cal_parseutil_print_char_xml(struct protstream *s, char c) ORV_NOEXCEPT;

/* String writers: CAL_PARSEUTIL_E_NOSTREAM when s is NULL, else 0; a NULL
 * string writes nothing. The character escapers answer the same for a NULL
 * stream (or column pointer). */
#define CAL_PARSEUTIL_E_NOSTREAM 1
ORV_API int cal_parseutil_print_string_ical_es(struct protstream *s, const char *str, int escape) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_string_ical(struct protstream *s, const char *str) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_string_no_esc_ical(struct protstream *s, const char *str) ORV_NOEXCEPT;
/* The XML writers ignore the escape flag: both forms write the same bytes. */
ORV_API int cal_parseutil_print_string_xml_es(struct protstream *s, const char *str, int escape) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_string_xml(struct protstream *s, const char *str) ORV_NOEXCEPT;
ORV_API int cal_parseutil_print_string_xml_no_esc(struct protstream *s, const char *str) ORV_NOEXCEPT;

/* String-to-string XML converters. *out (freed with free()) receives the
 * source with LF and CR replaced by "&#10;" (a lone CR becomes a line feed);
 * the full form also replaces '"' '&' '\'' '/' '<' '>' by "&#34;" "&#38;"
 * "&#39;" "&#47;" "&#60;" "&#62;". With compress non-zero every CR LF is
 * first turned into LF. A non-NULL *out is freed first. Returns 0;
 * CAL_PARSEUTIL_XML_E_SOURCE for a NULL source, a failed allocation or a
 * source too long to size (out stays NULL); CAL_PARSEUTIL_XML_E_OUT for a
 * NULL out. */
#define CAL_PARSEUTIL_XML_E_SOURCE 1
#define CAL_PARSEUTIL_XML_E_OUT    2
ORV_API int cal_parseutil_convert_to_xml_string(const char *source, char **out, int compress) ORV_NOEXCEPT;
ORV_API int cal_parseutil_convert_to_xml_string_always(const char *source, char **out, int compress) ORV_NOEXCEPT;
ORV_API int cal_parseutil_convert_to_xml_string_helper(const char *source, char **out, int compress,
                                                       int full) ORV_NOEXCEPT;
/* Turns every CR LF into LF in place; nothing for NULL. */
ORV_API void compressNewLines(char *s) ORV_NOEXCEPT;
/* Replaces every byte below 0x20 other than TAB, LF and CR by a space, in
 * place; nothing for NULL. */
ORV_API void cal_parseutil_ValidateXMLData(char *s) ORV_NOEXCEPT;

/* ---------------------------------------------------------------------
 * Argument strings and lists.
 *
 * An argument vector is a NULL-terminated array of "name=value" or "name"
 * strings. A name matches an entry when the entry's first strlen(name)
 * bytes equal it, ignoring ASCII case, and '=' or the end follows.
 * ------------------------------------------------------------------- */

/* 1 when some entry matches name; 0 otherwise or for NULL arguments. */
ORV_API int cal_parseutil_is_an_arg(char **vector, const char *name) ORV_NOEXCEPT;
/* Pointer into the first matching entry behind '=' and any spaces/tabs;
 * NULL when none matches, it has no '=', or its value is empty. */
ORV_API char *cal_parseutil_arg_value(char **vector, const char *name) ORV_NOEXCEPT;
/* As cal_parseutil_arg_value, but an empty value gives a pointer to the
 * entry's terminating NUL. */
ORV_API char *cal_parseutil_arg_value_or_empty(char **vector, const char *name) ORV_NOEXCEPT;
/* As cal_parseutil_arg_value over a string array's elements. */
ORV_API char *cal_parseutil_arg_value_from_strarray(const array_t *array, const char *name) ORV_NOEXCEPT;
/* Removes trailing spaces and tabs in place ("  " becomes ""); returns s. */
ORV_API char *cal_parseutil_trim(char *s) ORV_NOEXCEPT;

/*
 * Delimited lists. Each element is the text up to the next delimiter. When
 * a '"' comes before the next delimiter, the element is the text between
 * that quote and the next one, and whatever stands between the closing
 * quote and the next delimiter is dropped; an unclosed quote takes the rest
 * of the text. A last element with no delimiter behind it keeps its quotes.
 * Empty elements are kept ("a,,b," gives "a" "" "b" ""). A NUL delimiter
 * gives the whole text as one element.
 *
 * cal_parseutil_get_char_list stores NSPR strings in an NSPR array of
 * pointers (capacity 10, grown by 10, so a list of n elements costs n / 10
 * reallocations), freed with
 * cal_parseutil_free_char_list. Returns 0 with *count set (0 with count 0
 * for a NULL text); CAL_PARSEUTIL_LIST_E_ALLOC with count 0 when list or
 * count is NULL or an allocation other than growth fails;
 * CAL_PARSEUTIL_LIST_E_GROW with count 0 when growth fails. On failure
 * *list is NULL and nothing is leaked.
 */
#define CAL_PARSEUTIL_LIST_E_ALLOC 1
#define CAL_PARSEUTIL_LIST_E_GROW  3
ORV_API int cal_parseutil_get_char_list(const char *text, char ***list, int *count, char delimiter) ORV_NOEXCEPT;
ORV_API int cal_parseutil_get_comma_list(const char *text, char ***list, int *count) ORV_NOEXCEPT;
ORV_API int cal_parseutil_get_semicolon_list(const char *text, char ***list, int *count) ORV_NOEXCEPT;
/* Frees count elements (NULL ones skipped) and the list, and sets *list to
 * NULL. CAL_PARSEUTIL_FREE_E_ADDRESS for a NULL list address,
 * CAL_PARSEUTIL_FREE_E_NOLIST when *list is NULL, else 0. */
#define CAL_PARSEUTIL_FREE_E_ADDRESS 1
#define CAL_PARSEUTIL_FREE_E_NOLIST  2
ORV_API int cal_parseutil_free_char_list(char ***list, int count) ORV_NOEXCEPT;
/* The same split into a new string array stored in *array (any previous
 * pointer there is overwritten, not freed; free the new one with
 * strarray_free_and_destroy). 0 on success; 0 with *array untouched for a
 * NULL text or address; 0 with *array NULL when the array cannot be made;
 * CAL_PARSEUTIL_ARRAY_E_COPY when an element cannot be copied (*array keeps
 * the elements so far). */
#define CAL_PARSEUTIL_ARRAY_E_COPY 2
ORV_API int cal_parseutil_get_char_array(const char *text, char delimiter, array_t **array) ORV_NOEXCEPT;
ORV_API int cal_parseutil_get_comma_array(const char *text, array_t **array) ORV_NOEXCEPT;
ORV_API int cal_parseutil_get_semicolon_array(const char *text, array_t **array) ORV_NOEXCEPT;
/* Stores a new string array with copies of strings[0..n-1] in *array and
 * returns n; n <= 0 stores a new empty array and returns 0. Returns 0 and
 * stores nothing when array is NULL, strings is NULL with n > 0, or the
 * array cannot be made. */
ORV_API int cal_parseutil_to_calstrarray(array_t **array, int n, char **strings) ORV_NOEXCEPT;
/* Cuts text in place at every space and tab and appends a copy of each
 * piece to array; two blanks in a row give an empty piece, an empty tail
 * adds nothing ("a  b " gives "a" "" "b"). Always 0; nothing when text or
 * array is NULL. */
ORV_API int cal_parseutil_delimit_by_space_or_tab(char *text, array_t *array) ORV_NOEXCEPT;

/* An optional sign and decimal digits only: their value (saturated at the
 * limits of long; "" and a lone sign give 0); anything else or NULL gives
 * def. */
ORV_API long cal_parseutil_getInteger(const char *s, long def) ORV_NOEXCEPT;
/* 1 exactly when cal_parseutil_getInteger(s, 0) is 1 ("1", "+1", "001"). */
ORV_API int cal_parseutil_getBool(const char *s) ORV_NOEXCEPT;
/* Convert in place with the C library's tolower/toupper under the current
 * locale; return s (NULL gives NULL). */
ORV_API char *cal_parseutil_str_tolower(char *s) ORV_NOEXCEPT;
ORV_API char *cal_parseutil_str_toupper(char *s) ORV_NOEXCEPT;

/* Name matchers used by cal_parseutil_searchForString: entry, pattern and
 * the length of the entry's name. 0 for a match, 1 when the pattern is
 * longer than the name (Exact: when the lengths differ), -1 otherwise.
 * Only the prefix matcher ever returns 0; the others answer by the length
 * rule alone, so searches in those modes collect nothing. */
ORV_API int cal_parseutil_PrefixSearch(const char *entry, const char *pattern, int namelen) ORV_NOEXCEPT;
ORV_API int cal_parseutil_SuffixSearch(const char *entry, const char *pattern, int namelen) ORV_NOEXCEPT;
ORV_API int cal_parseutil_ContainsSearch(const char *entry, const char *pattern, int namelen) ORV_NOEXCEPT;
ORV_API int cal_parseutil_ExactSearch(const char *entry, const char *pattern, int namelen) ORV_NOEXCEPT;
/* Appends a copy of every "name=value" entry of vector whose name matches
 * pattern (mode 1 prefix, 2 suffix, 3 contains, other exact) to *array,
 * creating the array when *array is NULL. 0; CAL_PARSEUTIL_SEARCH_E_ARG
 * when vector is NULL or empty or pattern/array is NULL;
 * CAL_PARSEUTIL_SEARCH_E_ARRAY when the array cannot be made. Entries
 * without '=' are skipped. */
#define CAL_PARSEUTIL_SEARCH_E_ARG   1
#define CAL_PARSEUTIL_SEARCH_E_ARRAY 2
ORV_API int cal_parseutil_searchForString(char **vector, const char *pattern, int mode, array_t **array) ORV_NOEXCEPT;

/* ---------------------------------------------------------------------
 * In-place web decoders and encoders (new strings here are malloc'ed and
 * freed with free()).
 * ------------------------------------------------------------------- */

/* Percent-encodes every ASCII byte that is not a letter or digit as '%'
 * and printf's "%2X" of it: upper-case hex padded with a space, so a tab
 * becomes "% 9"; bytes 0x80 and above are kept. Space gives "%20". NULL
 * for NULL, "" or no memory. */
ORV_API char *cal_parseutil_URLencode(const char *text) ORV_NOEXCEPT;
/* Escapes for a single-quoted script string: ' \ BS FF LF CR become \' \\
 * \b \f \n \r and "/s" becomes "/'+'s" (so "</script>" cannot close the
 * script); '"' is kept. A plain copy when nothing needs escaping; NULL for
 * NULL or no memory. */
ORV_API char *cal_parseutil_JSencode(const char *text) ORV_NOEXCEPT;
/* Percent-decodes in place and returns text: "%XY" with upper-case hex
 * digits gives the byte (lower-case ones are kept as they are), "%u"
 * becomes "\u", any other '%' is kept, and with plus non-zero '+' becomes a
 * space. One pass: a '%' produced by "%25" is never decoded again. A
 * decoded "%00" ends the string there. NULL gives NULL. */
ORV_API char *cal_parseutil_unescape(char *text, int plus) ORV_NOEXCEPT;
/* In place: "%u" becomes "\u"; '%' and two more bytes become
 * (d1 * 16 + d2) & 0xFF, each digit's value being its code minus '0' up to
 * '9' and minus '7' above (unchecked). A '%' with fewer than two bytes
 * behind it is kept. Returns text. */
ORV_API char *cal_parseutil_unescape_escaped_unicode(char *text) ORV_NOEXCEPT;
/* Cuts query in place at '&' into at most max - 1 entries (leading spaces
 * and tabs skipped, empty entries skipped, the rest behind the last stored
 * entry dropped), stores them in vector followed by NULL, decodes each with
 * cal_parseutil_unescape(entry, 1) and returns their number. vector needs
 * room for max pointers. 0 (nothing stored) when query or vector is NULL
 * or max < 1. */
ORV_API int cal_parseutil_decode_url(char *query, int max, char **vector) ORV_NOEXCEPT;
/* Position-keyed scrambling of exactly n bytes from src into *dst, and its
 * inverse. The key offsets are 1 3 2 3 1 2 (byte i uses offset i mod 6).
 * Digits shifted past '9' wrap into the lower-case letters. A zero byte is
 * copied as zero. Unscrambling restores every byte except 0x5E-0x60
 * ('^' '_' '`') and 0xFD-0xFF, which scrambling cannot keep apart from
 * others. Nothing for a NULL src, dst or *dst, or n <= 0. Always 0. */
ORV_API int cal_parseutil_dumbEnCrypt(const char *src, char **dst, int n) ORV_NOEXCEPT;
ORV_API int cal_parseutil_dumbDeCrypt(const char *src, char **dst, int n) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_CAL_PARSEUTIL_H */
