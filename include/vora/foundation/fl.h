/* Foundation: FL chunked-file streams (docs/ARCHITECTURE.md, section 3).
 *
 * An FLfile is a stream record over a plain file, a "pipe:COMMAND", standard input/output ("-"),
 * or a converter program wrapped around another stream (FLfilter). It reads and writes IFF-85
 * style groups and chunks:
 *   chunk = id (4 bytes) + size (u32 big-endian, padding excluded) + data + zero padding to the
 *           alignment of the enclosing group;
 *   group = id + size + type (4 bytes) + nested chunks and groups; its size counts the type word
 *           and everything nested, padding included.
 * Alignment by group id: FORM/CAT /LIST/PROP 2 bytes, FOR4/CAT4/LIS4/PRO4 4 bytes (the native
 * image), FOR8/CAT8/LIS8/PRO8 8 bytes; a group is recognised by its first three characters.
 * Sizes 0x80000000, 0x80000001 and 0x80000002 mean "not known yet": such a group ends at a
 * "GEND" chunk (older writers give GEND itself the size 0x80000000, read as 0).
 *
 * Reading checks every size against its enclosing group and, for seekable streams, the file
 * size; groups nest at most FL_MAXDEPTH deep. Writing to a seekable file back-patches sizes;
 * writing to a stream that cannot seek buffers the outermost open group in memory and emits it
 * whole when that group ends.
 *
 * Status codes: 0 OK, FL_END (1) end of group, FL_DONE (2) done; error codes 3 to 99 below; the
 * image library's own codes 100 to 112 share the same code space and the
 * same texts (FLstrerror). flerrno is per thread, like errno.
 */
#ifndef VORA_FOUNDATION_FL_H
#define VORA_FOUNDATION_FL_H

#include <stddef.h>
#include <stdint.h>
#include <vora/export.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t FLid;
#define FL_ID(a, b, c, d) \
  ((FLid)(((uint32_t)(a) << 24) | ((uint32_t)(b) << 16) | ((uint32_t)(c) << 8) | (uint32_t)(d)))

/* ---- status and error codes ------------------------------------------------------------- */
enum {
  FL_OK = 0,
  FL_END = 1,       /* no further chunk in this group */
  FL_DONE = 2,
  FL_ENOMEM = 3,    /* out of memory */
  FL_EOPEN = 4,     /* the file cannot be opened (FLoserror holds errno) */
  FL_EREAD = 5,     /* read error */
  FL_EWRITE = 6,    /* write error */
  FL_ESEEK = 7,     /* the stream cannot seek there */
  FL_EEOF = 9,      /* unexpected end of data */
  FL_ESIZE = 11,    /* a chunk or group size runs past its group or the file, or is too small */
  FL_NOTIFF = 12,   /* FLparse: the data does not begin with a group */
  FL_EALIGN = 13,   /* a group aligned more loosely than its parent */
  FL_EDEPTH = 14,   /* groups nested deeper than FL_MAXDEPTH */
  FL_ESTATE = 15,   /* call out of sequence (no chunk or group open, wrong kind open) */
  FL_NOFORM = 16,   /* FLparse: end of data without an accepted form */
  FL_EFORM = 22,    /* form check: an image in a 2-byte aligned FORM group */
  FL_EOVERRUN = 23, /* packed data overruns its tile */
  FL_EMODE = 24,    /* operation not allowed in this stream's mode */
  FL_ENOPROG = 40,  /* a named filter program cannot be found */
  FL_ENOCMD = 43,   /* the command of a pipe or filter cannot be found */
  FL_ESPAWN = 44,   /* the command could not be started */
  FL_ECHILD = 45,   /* the command of a pipe or filter failed (non-zero exit or signal) */
  FL_ENOTSUP = 46,  /* not supported by this build */
  FL_ACCEPT = 47    /* FLparse: the form check accepted a group */
};

#define FL_MAXDEPTH 64 /* deepest group nesting a reader accepts */

/* ---- stream kind flags (FLfile.flags) ------------------------------------------------------ */
#define FL_READ 0x1       /* open for reading */
#define FL_WRITE 0x2      /* open for writing */
#define FL_FILE 0x4       /* a plain file by name */
#define FL_PIPE 0x10      /* a "pipe:COMMAND" stream */
#define FL_STDIO 0x80     /* standard input or output ("-") */
#define FL_FILTER 0x100   /* a converter program wrapped around another stream (FLfilter) */
#define FL_SEEKABLE 0x2000 /* random access: sizes are back-patched, chunks skipped by seeking */

/* ---- parse state flags (FLparsestate) ------------------------------------------------------ */
#define FL_PS_HEADER 0x1    /* an 8-byte group header (id, size) was consumed */
#define FL_PS_TYPE 0x2      /* the group's 4-byte type word was consumed too */
#define FL_PS_FORM 0x100000 /* the group under check is a form (FOR?), not a CAT?/LIS?/PRO? */

/* The stream record. Records of callers that extend it (the image handle) begin with it and
 * are allocated whole by FLsopen(name, mode, record size), zero-filled. */
typedef struct FLfile FLfile;
struct FLfile {
  struct FLstreamImpl* impl; /* foundation-private state */
  unsigned int flags;        /* FL_* kind flags above */
  unsigned int recsize;      /* size of the whole record */
  void (*release)(FLfile*);  /* called by FLclose before the record is freed (record extensions) */
};

/* Form check given to FLparse: called with the stream, the group id and the group type.
 * Returns 0 "not this group" (a form is skipped, a CAT?/LIS? is entered and its children are
 * checked), 1 "enter this group and check its children", or any other value, at which FLparse
 * stops and returns that value, positioned after the group's type word with the group open. */
typedef int (*FLformcheck)(FLfile* f, FLid group, FLid type);

/* What FLparse consumed of the last group header it met (for pushing it back). */
typedef struct FLparsestate {
  unsigned int flags; /* FL_PS_* */
  FLid id;            /* last group id met (host order) */
  uint32_t size;      /* its size (host order) */
  FLid type;          /* its type, when FL_PS_TYPE */
} FLparsestate;

/* ---- errors ---------------------------------------------------------------------------- */
VORA_API int* FLerrnoLocation(void);
#define flerrno (*FLerrnoLocation())
VORA_API int FLerror(void);                 /* the current flerrno */
VORA_API const char* FLstrerror(int code);  /* text of any code, from the message catalogue */
VORA_API int FLoserror(void);               /* errno of the last failing system call; clears it */

/* ---- opening and closing --------------------------------------------------------------- */
/* mode: "r" or "w" (other letters ignored). Names: "-" is standard input/output,
 * "pipe:COMMAND" runs COMMAND with /bin/sh (its stdout is read, or its stdin written), any
 * other name is a file; a relative name opened for reading is looked up on the current search
 * path (FLswappath). recsize >= sizeof(FLfile). Null with flerrno on failure. */
VORA_API FLfile* FLsopen(const char* name, const char* mode, size_t recsize);
VORA_API FLfile* FLopen(const char* name, const char* mode);
/* Replaces the stream of an open record by a new one; the record (and its extension) stays.
 * On failure the record is closed (FLclose, release hook included) and null returned. */
VORA_API FLfile* FLreopen(const char* name, const char* mode, FLfile* f);
/* Ends what is still open for writing, flushes, closes the stream (waiting for any command),
 * runs the release hook and frees the record. Returns 0 or the first error. Null is ignored. */
VORA_API int FLclose(FLfile* f);
/* Wraps the stream in COMMAND (run with /bin/sh): reading, the stream's remaining bytes
 * (pushed-back bytes first) feed the command's stdin and its stdout is read; writing, what is
 * written feeds its stdin and its stdout goes to the old stream. Same record returned; null
 * with flerrno FL_ENOCMD when the program is not found, FL_ESPAWN when it cannot start (the
 * record then stays open and unchanged). */
VORA_API FLfile* FLfilter(const char* command, const char* mode, FLfile* f);
VORA_API const char* FLname(FLfile* f);
/* The alignment of a group id (2, 4 or 8), or 0 when id is not a group (FOR?, CAT?, LIS?, PRO?). */
VORA_API int FLisgroup(FLid id);

/* ---- reading -------------------------------------------------------------------------- */
VORA_API void FLsetform(FLfile* f, FLformcheck check); /* null removes it */
/* Walks groups from the current position, calling the form check for each group. Returns the
 * check's stopping value (FL_ACCEPT for the image library), FL_NOTIFF when a group header was
 * expected and something else was found, FL_NOFORM at the end of the data (or of the enclosing
 * group) without a stop, or an error code with flerrno set (malformed sizes, nesting too deep,
 * read errors). A stream shorter than one group header is pushed back whole. */
VORA_API int FLparse(FLfile* f);
VORA_API const FLparsestate* FLgetparsestate(FLfile* f);
/* Begins the next chunk or group of the open group. 0 with *id, *size set; FL_END at the end of
 * the group (a GEND chunk, or the end of data in a top-level or unknown-size group); FL_ESIZE
 * when the header is truncated or the size runs past the group or the file; FL_EREAD with
 * flerrno on a read error. Structural failures (FL_END, FL_ESIZE) do not set flerrno.
 * FLlastid names the id of the last header read, even when it failed. */
VORA_API int FLbgnget(FLfile* f, FLid* id, uint32_t* size);
VORA_API FLid FLlastid(FLfile* f);
/* Undoes the last FLbgnget when nothing of the chunk was read yet. */
VORA_API int FLunget(FLfile* f);
/* Reads up to n bytes of the current chunk; returns the count (short at the chunk's end or the
 * end of data) or -1 with flerrno. */
VORA_API int64_t FLget(FLfile* f, void* buf, size_t n);
VORA_API uint32_t FLgetleft(FLfile* f); /* bytes of the current chunk not yet read */
/* The next n bytes of the current chunk, read as FLget reads them but left in the stream's own
 * buffer: the pointer holds until the next call on the stream. Null (flerrno 0) when n is over
 * 1 MiB or past the chunk's end, or when the data ends first (FL_EREAD on a read error); FLget
 * still reads what is there. */
VORA_API const void* FLgetview(FLfile* f, size_t n);
/* Skips the rest of the current chunk (or unentered group) and its padding. */
VORA_API int FLendget(FLfile* f);
/* After FLbgnget met a group: reads its type word and makes it the open group. */
VORA_API int FLbgnrgroup(FLfile* f, FLid* type);
/* Skips the rest of the open group (and any chunk open in it) and leaves it. */
VORA_API int FLendrgroup(FLfile* f);
/* Pushes bytes back in front of the unread data (they are read next, in the given order). */
VORA_API int FLunread(FLfile* f, const void* data, size_t n);
/* Raw stream reading, outside the chunk structure (whole-file readers). */
VORA_API int64_t FLread(FLfile* f, void* buf, size_t n);
/* Size of the underlying file for seekable streams, -1 when unknown. */
VORA_API int64_t FLfilesize(FLfile* f);
VORA_API int FLdepth(FLfile* f); /* open groups and chunks */

/* ---- writing -------------------------------------------------------------------------- */
VORA_API int FLbgnwgroup(FLfile* f, FLid id, FLid type);
VORA_API int FLendwgroup(FLfile* f);
VORA_API int FLbgnwchunk(FLfile* f, FLid id); /* size patched at FLendput */
VORA_API int FLput(FLfile* f, const void* data, size_t n);
VORA_API int FLendput(FLfile* f);
/* Reserves a chunk of at most size bytes and returns where to put them (valid until the next
 * call on the stream), or null with flerrno; FLendwbchunk(f, n) ends it with n <= size bytes. */
VORA_API void* FLbgnwbchunk(FLfile* f, FLid id, uint32_t size);
VORA_API int FLendwbchunk(FLfile* f, uint32_t n);
VORA_API int FLputchunk(FLfile* f, FLid id, uint32_t size, const void* data);
/* Sends buffered bytes on. Streams that cannot seek keep the outermost open group in memory
 * until it ends, so for them this only sends what lies outside any group. */
VORA_API int FLflush(FLfile* f);
VORA_API int FLflushBuffer(FLfile* f);
VORA_API int64_t FLtell(FLfile* f);
/* Seekable streams only: moves the read or write position (writing: flushes first). */
VORA_API int FLseek(FLfile* f, int64_t pos);

/* ---- search paths and names --------------------------------------------------------------- */
/* A search path is a malloc'd text of directories separated by ';' (free with FLfreepath). */
VORA_API char* FLbuildpath(const char* text);
VORA_API void FLfreepath(char* path);
/* Makes path the current search path (null: none) and returns the previous one. */
VORA_API const char* FLswappath(const char* path);
/* The first existing file for name on the current search path (a name with '/' or an existing
 * name is taken as is), in a per-thread buffer, or null. */
VORA_API const char* FLfindfile(const char* name);
/* The work directory: VORA_LOCATION when set, else the current directory. Per-thread buffer. */
VORA_API const char* FLgetwork(void);
/* The extension of the last path component (after its last '.'), or null. */
VORA_API const char* FLgetext(const char* name);

/* ---- memory and lists ------------------------------------------------------------------- */
/* The one check before an allocation whose size comes from outside data: nonzero when bytes is
 * within the documented limit: VORA_MAX_ALLOC_MB (mebibytes) when set, else 4096 MiB. Readers that
 * can bound a size by the file's length check that first. */
VORA_API int FLallocok(uint64_t bytes);
/* Replaces the limit for the rest of the process (vimg --max-memory); 0 restores the default. */
VORA_API void FLsetalloclimit(uint64_t bytes);
/* The one check of a declared image size against its file: nonzero when `decoded` bytes fit the
 * allocation limit and could come from `stored` bytes of a coding that expands data at most
 * `ratio` times (plus 1 MiB of headroom for small files). stored < 0 (a pipe): the limit alone. */
VORA_API int FLdecodeok(uint64_t decoded, int64_t stored, uint32_t ratio);
/* Grows *buffer (realloc) to hold at least need bytes, tracking the capacity in *size;
 * returns the buffer or null with flerrno FL_ENOMEM (the old buffer then stays). */
VORA_API void* FLgrow(void** buffer, size_t* size, size_t need);
typedef struct FLnode {
  struct FLnode* next;
  struct FLnode* prev;
} FLnode;
typedef struct FLlist {
  FLnode* head;
  FLnode* tail;
} FLlist;
VORA_API void FLinitlist(FLlist* list);
VORA_API void FLaddtail(FLlist* list, FLnode* node);
VORA_API void FLremove(FLlist* list, FLnode* node);
/* Number of set bits of each byte value. */
VORA_API extern const unsigned char flbitset[256];

#ifdef __cplusplus
}
#endif

#endif
