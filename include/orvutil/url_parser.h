/*
 * The URL object: one URL split into its fields, changed through setters
 * and turned back into text on demand. Query parameters live in a
 * dictionary (cal_dict.h) of malloc'ed string values.
 *
 * Only "http" URLs are split further than their protocol, along
 *   scheme ":" ["//" [user [":" password] "@"] host [":" port]] "/" path
 *   ["?" query] ["#" fragment]
 * and the text behind the first space is kept as the remainder. Setters
 * mark the object dirty; the getters that say so rebuild the text first.
 * The rebuilt text starts with the protocol name and "://"; a fragment
 * parsed behind a query keeps its '#', so it comes back as "##fragment"
 * (kept on purpose).
 *
 * Memory: every string a function hands over (URLGetUrl, URLGetPath,
 * CSIDPath, ToLocalFile, ResourceToFile, LocalFileToURL, copyFromAtoB,
 * copyFromAthroughB) is allocated with malloc and freed by the caller with
 * free(), except that copyFromAtoB/copyFromAthroughB may return
 * URLEmptyString, which is never freed. The other getters return the
 * object's own fields. Text fields that are cleared hold URLEmptyString.
 *
 * Decisions of this implementation:
 * - Any function given a NULL object does nothing and returns NULL or 0.
 * - Parsing never reads past the text. Where no path follows the authority
 *   ("http://h", or three slashes, which give the host "localhost") the
 *   parse ends with an empty path and the object clean; without "//" only
 *   the protocol is set.
 * - A port is set only when its text reads as a decimal int ("%d": blanks,
 *   an optional sign, digits) without overflowing; otherwise it stays 0.
 * - The text is rebuilt in a growable buffer: URLs of any length are
 *   neither truncated nor overflowed.
 * - URLSetParams frees the dictionary it replaces (values with free()).
 * - ResourceToFile joins "file:///", the absolute directory and the name,
 *   so its result starts with "//" (the directory's own slash doubled).
 * - URLSetPath does nothing when the path is empty.
 * An object is not locked; one thread uses it at a time.
 */
#ifndef ORVUTIL_URL_PARSER_H
#define ORVUTIL_URL_PARSER_H

#include "cal_dict.h"
#include "orv_defs.h"

ORV_BEGIN_DECLS

/* Protocol numbers: indexes into URLProtStrings. */
enum {
    URL_PROT_NONE = 0,
    URL_PROT_HTTP = 1,
    URL_PROT_MAILTO = 2,
    URL_PROT_FILE = 3,
    URL_PROT_CAP = 4,
    URL_PROT_IMIP = 5,
    URL_PROT_IRIP = 6,
    URL_PROT_RESOURCE = 7,
    URL_PROT_FTP = 8,
    URL_PROT_COUNT = 9
};

typedef struct URL {
    char *text;            /* whole URL as last set or rebuilt */
    unsigned int protocol; /* index into URLProtStrings; 0: none or unknown */
    char *user;
    char *password;
    char *host;
    int port;        /* 0 or less: not given */
    char *path;      /* behind the authority's '/', without query and fragment */
    caldict *params; /* query parameters, or NULL */
    char *extra;     /* fragment */
    char *remainder; /* text behind the first space of the parsed input */
    int spare;       /* copied by URLCopy, otherwise unused */
    int dirty;       /* 1: a field changed and the text must be rebuilt */
} URL;

/* "", "http", "mailto", "file", "cap", "imip", "irip", "resource", "ftp",
 * then NULL. */
ORV_API extern const char *const URLProtStrings[URL_PROT_COUNT + 1];
/* Paired by position: ':' <-> '|', '\\' <-> '/'. */
ORV_API extern const char gtpDecodedFileChars[3];
ORV_API extern const char gtpEncodedFileChars[3];
/* The shared empty string of cleared fields; never freed, never written. */
ORV_API extern char URLEmptyString[1];

/* A zeroed object; NULL when memory runs out. */
ORV_API URL *new_URL(void) ORV_NOEXCEPT;
/* new_URL, then SetCurl when text is neither NULL nor empty. */
ORV_API URL *URLCreate(const char *text) ORV_NOEXCEPT;
/* Stores a copy of text and parses it into the fields. */
ORV_API void SetCurl(URL *url, const char *text) ORV_NOEXCEPT;
/* Frees every field, the parameters (values with free()) and the object. */
ORV_API void URLFree(URL *url) ORV_NOEXCEPT;
/* A new object with protocol, host, port, path, params (values copied),
 * extra, remainder, spare and dirty of url; text, user and password are
 * left unset (NULL) on purpose. */
ORV_API URL *URLCopy(const URL *url) ORV_NOEXCEPT;

/* Rebuilds the text when dirty and returns a malloc copy (NULL if none). */
ORV_API char *URLGetUrl(URL *url) ORV_NOEXCEPT;
/* Rebuild when dirty, then the field itself. */
ORV_API char *URLGetUser(URL *url) ORV_NOEXCEPT;
ORV_API char *URLGetPassword(URL *url) ORV_NOEXCEPT;
ORV_API char *URLGetHost(URL *url) ORV_NOEXCEPT;
ORV_API char *URLGetCSID(URL *url) ORV_NOEXCEPT;
/* The fields as they stand. */
ORV_API unsigned int URLGetProtocol(const URL *url) ORV_NOEXCEPT;
ORV_API const char *URLGetProtocolString(const URL *url) ORV_NOEXCEPT;
ORV_API int URLGetPort(const URL *url) ORV_NOEXCEPT;
ORV_API char *URLGetExtra(const URL *url) ORV_NOEXCEPT;
ORV_API caldict *URLGetParams(const URL *url) ORV_NOEXCEPT;
ORV_API char *URLGetRemainder(const URL *url) ORV_NOEXCEPT;

/* Accepts n below URL_PROT_COUNT; marks dirty only when n changes. */
ORV_API void URLSetProtocol(URL *url, unsigned int n) ORV_NOEXCEPT;
/* Store a copy (NULL stays NULL) and mark dirty. */
ORV_API void URLSetUser(URL *url, const char *text) ORV_NOEXCEPT;
ORV_API void URLSetPassword(URL *url, const char *text) ORV_NOEXCEPT;
ORV_API void URLSetHost(URL *url, const char *text) ORV_NOEXCEPT;
ORV_API void URLSetExtra(URL *url, const char *text) ORV_NOEXCEPT;
ORV_API void URLSetCSID(URL *url, const char *text) ORV_NOEXCEPT;
/* Marks dirty only when n changes. */
ORV_API void URLSetPort(URL *url, int n) ORV_NOEXCEPT;
/* Takes ownership of dict and marks dirty. */
ORV_API void URLSetParams(URL *url, caldict *dict) ORV_NOEXCEPT;

/* The path up to and including its last '/' ("" without '/'; NULL when the
 * path is NULL). */
ORV_API char *URLGetPath(const URL *url) ORV_NOEXCEPT;
/* The path before its first '/' ("" without '/'). */
ORV_API char *CSIDPath(const URL *url) ORV_NOEXCEPT;
/* Replaces the directory part of the path: dir, a '/' unless dir ends with
 * one, then the old path behind its last '/'. Does not mark dirty. */
ORV_API void URLSetPath(URL *url, const char *dir) ORV_NOEXCEPT;

/* 1 when the text begins with '/'. */
ORV_API int IsLocalFile(const URL *url) ORV_NOEXCEPT;
/* The local file path of a "/...", "file://", "capi://" or "resource://"
 * URL; "" for any other. */
ORV_API char *ToLocalFile(URL *url) ORV_NOEXCEPT;
/* Resolves a "resource://" URL against the current directory (found by
 * running "pwd"), printing its diagnostics on standard output; NULL when
 * the command cannot be run or read. */
ORV_API char *ResourceToFile(URL *url) ORV_NOEXCEPT;
/* Converts the path to URL file characters, then replaces it with
 * ToLocalFile's result. */
ORV_API void ResolveFileURL(URL *url) ORV_NOEXCEPT;
/* In place: ':' -> '|' and '\\' -> '/'. */
ORV_API void ConvertToURLFileChars(char *s) ORV_NOEXCEPT;
/* In place: '|' -> ':' only ('/' stays '/'). */
ORV_API void ConvertToFileChars(char *s) ORV_NOEXCEPT;
/* Placeholder: a new 1024-byte buffer holding "". */
ORV_API char *LocalFileToURL(URL *url) ORV_NOEXCEPT;
/* Placeholders: do nothing. */
ORV_API void URLEncode(URL *url) ORV_NOEXCEPT;
ORV_API void URLDecode(URL *url) ORV_NOEXCEPT;

/* Frees user, password, host, path, extra and remainder (each becomes
 * URLEmptyString) and the parameters. */
ORV_API void clearURL(URL *url) ORV_NOEXCEPT;
/* The bytes from a up to but not including b (through b for
 * copyFromAthroughB); URLEmptyString when the range is empty or a pointer
 * is NULL. */
ORV_API char *copyFromAtoB(const char *a, const char *b) ORV_NOEXCEPT;
ORV_API char *copyFromAthroughB(const char *a, const char *b) ORV_NOEXCEPT;

ORV_END_DECLS

#endif /* ORVUTIL_URL_PARSER_H */
