// Korvane from C, and from whatever can call C: the automation classes (`korvane automation reference`), late bound.
//
// Everything that lives is a handle, a number: platforms, objects, abort tokens, and the owners of what values point
// to. 0 is none. A handle that was freed, or is of another sort, is an error, never a crash. `korvane_free` takes any.
//
// Every function that returns int32_t returns KORVANE_OK or the kind of its error, which `korvane_last_error` tells on
// the same thread. Functions may be called by any thread; one object is called by one thread at a time. Texts are
// UTF-8.
//
//     korvane_handle platform, parser;
//     korvane_value mass = korvane_double(118.0863), peak = {0};
//     if (korvane_open(NULL, &platform) || korvane_create(platform, "SpectrumParser", &parser) ||
//         korvane_call_named(parser, "GetPeakAttributes", &mass, 1, &peak)) ...
#ifndef KORVANE_KORVANE_C_H
#define KORVANE_KORVANE_C_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#define KORVANE_C_API
#else
#define KORVANE_C_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/// Grows with every change of this header that a program has to know of. A minor version of 0.x may break.
#define KORVANE_C_VERSION 1

typedef uint64_t korvane_handle;

/// What functions return: the kind of the error.
enum korvane_status {
    KORVANE_OK = 0,
    KORVANE_USAGE = 1,          ///< the call itself: arguments, handles, types
    KORVANE_CONFIGURATION = 2,  ///< a file or its content
    KORVANE_INSTRUMENT = 3,
    KORVANE_TIME_OUT = 4,  ///< a wait that ended without its condition
    KORVANE_ABORTED = 5,   ///< by the abort flag, a token or the events hook
    KORVANE_INTERNAL = 6   ///< memory, or a bug
};

/// The automation error. The texts live until the next error of the thread.
typedef struct korvane_error {
    int32_t number;
    int32_t kind;  ///< korvane_status
    const char* source;
    const char* description;
    const char* cause;  ///< what lies behind it, where number and description are fixed; often ""
} korvane_error;

/// The last error of this thread, which a call that succeeds leaves as it is. Never fails.
KORVANE_C_API void korvane_last_error(korvane_error* error);

/// "0.1.0"; static.
KORVANE_C_API const char* korvane_version(void);
/// KORVANE_C_VERSION of the library: refuse any other than the one compiled with.
KORVANE_C_API int32_t korvane_c_version(void);

// Values.

enum korvane_kind {
    KORVANE_EMPTY = 0,
    KORVANE_MISSING = 1,  ///< an argument left out
    KORVANE_NULL = 2,
    KORVANE_BOOLEAN = 3,  ///< as.integer, not 0 is true
    KORVANE_INT16 = 4,    ///< as.integer
    KORVANE_INT32 = 5,    ///< as.integer
    KORVANE_SINGLE = 6,   ///< as.number
    KORVANE_DOUBLE = 7,   ///< as.number
    KORVANE_DATE = 8,     ///< as.number, days since 30 December 1899
    KORVANE_TEXT = 9,     ///< as.text and count, or KORVANE_TO_ITS_END
    KORVANE_OBJECT = 10,  ///< as.object; 0 is Nothing
    KORVANE_RECORD = 11,  ///< as.data: the struct that `element` names
    KORVANE_ARRAY = 12    ///< as.data or as.values, count, `element`, and bounds where not one dimension from 0
};

/// Sorts of records, and their structs.
enum korvane_record { KORVANE_PEAK = 0, KORVANE_COEFFICIENTS = 1, KORVANE_SETTINGS = 2 };

/// Positions and width in ns or amu, area in counts x samples, height in counts.
typedef struct korvane_peak {
    double apex, start, area, centroid, width, height, resolution, end;
} korvane_peak;
typedef struct korvane_coefficients {
    double a, b, c, d, e, f, g, h;
} korvane_coefficients;
typedef struct korvane_settings {
    int32_t reserved, traditional_weighting, polynomial_weighting;
} korvane_settings;

typedef struct korvane_bound {
    int32_t lower;
    size_t count;
} korvane_bound;

/// Count of a text that ends with its first zero.
#define KORVANE_TO_ITS_END ((size_t)-1)

/// Zeros are Empty. What a given value points to is read during the call only and must be as long as it says. What the
/// library hands out lives, unchanged, until its owner is freed (`korvane_clear`), whatever becomes of the object that
/// it came from; an array of numbers is the library's own memory, not a copy. An object to be kept is copied.
typedef struct korvane_value {
    int32_t kind;     ///< korvane_kind
    int32_t element;  ///< RECORD: korvane_record. ARRAY: INT16, INT32, SINGLE (float), DOUBLE as numbers in as.data;
                      ///< TEXT, OBJECT, RECORD or EMPTY (of any kind) as as.values
    union {
        int32_t integer;
        double number;
        const char* text;  ///< from the library always with a zero behind it
        korvane_handle object;
        const void* data;
        const struct korvane_value* values;
    } as;
    size_t count;                 ///< bytes of a text, elements of an array, all dimensions together
    const korvane_bound* bounds;  ///< `rank` of them, the last index runs fastest; null: one dimension from 0
    size_t rank;
    korvane_handle owner;  ///< 0: nobody's, or the caller's own memory
} korvane_value;

static inline korvane_value korvane_of(int32_t kind) {
    korvane_value value = {KORVANE_EMPTY, KORVANE_EMPTY, {0}, 0, NULL, 0, 0};
    value.kind = kind;
    return value;
}
static inline korvane_value korvane_long(int32_t number) {
    korvane_value value = korvane_of(KORVANE_INT32);
    value.as.integer = number;
    return value;
}
static inline korvane_value korvane_double(double number) {
    korvane_value value = korvane_of(KORVANE_DOUBLE);
    value.as.number = number;
    return value;
}
static inline korvane_value korvane_text(const char* text) {
    korvane_value value = korvane_of(KORVANE_TEXT);
    value.as.text = text;
    value.count = KORVANE_TO_ITS_END;
    return value;
}
static inline korvane_value korvane_doubles(const double* numbers, size_t count) {
    korvane_value value = korvane_of(KORVANE_ARRAY);
    value.element = KORVANE_DOUBLE;
    value.as.data = numbers;
    value.count = count;
    return value;
}

/// Frees what the value owns and makes it Empty. Takes null.
KORVANE_C_API void korvane_clear(korvane_value* value);

// Handles.

/// Another handle of the same object, platform or token. USAGE for one that is none.
KORVANE_C_API int32_t korvane_copy(korvane_handle handle, korvane_handle* copy);
/// Takes 0, and handles that are none any more.
KORVANE_C_API void korvane_free(korvane_handle handle);

// Platforms: the instrument and the base folder that objects work on.

typedef struct korvane_options {
    size_t size;              ///< sizeof(korvane_options)
    const char* base_folder;  ///< null: KORVANE_BASE, else the per-user folder
    const char* scene;        ///< of the simulator; null: the base folder's, else the default
    const char* replay;       ///< a recording (mzML) in the simulator's place; null: none
    const char* instrument;   ///< a layer's shared library or, on Windows, ProgID; null: none
    korvane_handle layer;     ///< an object with the members of InstrumentLayer; 0: none
    uint64_t seed;            ///< of the simulator; 0: 1
    /// Called on the calling thread every 20 ms or so of a wait and before uses of the instrument, for a host's events.
    /// Anything but 0 aborts the call that waits, and no other. Null: none.
    int32_t (*events)(void* context);
    void* context;
} korvane_options;

/// Without base folder, scene, replay, instrument and layer: what KORVANE_INSTRUMENT and KORVANE_BASE name; so is null.
/// Folder and instrument are looked for at their first use, and told then.
KORVANE_C_API int32_t korvane_open(const korvane_options* options, korvane_handle* platform);
/// A complete new base folder. CONFIGURATION where it exists and is not an empty folder.
KORVANE_C_API int32_t korvane_create_base_folder(const char* folder);
/// The same platform with a guard that notes setpoints and firmware channels before their first write through it, and
/// gives them back when its last handle is freed.
KORVANE_C_API int32_t korvane_guard(korvane_handle platform, korvane_handle* guarded);
/// Gives back now, or with `keep` forgets. `moves`, where not null, becomes an array of rows (name, before, now,
/// failure or "") of what was moved, the last one first.
KORVANE_C_API int32_t korvane_give_back(korvane_handle guarded, int32_t keep, korvane_value* moves);

/// What the instrument gave last to objects of this platform: amu and counts of every sample, flight time of the first.
KORVANE_C_API int32_t korvane_last_spectrum(korvane_handle platform, korvane_value* masses, korvane_value* counts,
                                            korvane_value* start_time_ns);

// Objects.

/// A new object of a creatable class, "TuneGlobals" or "Korvane.TuneGlobals"; of "InstrumentLayer", the platform's own
/// instrument with the members of docs/instrument-objects.md; of "PeakFinder" or "MassTimeCalibration" (the square law,
/// zeros), parts for a layer. Error 429 for any other.
KORVANE_C_API int32_t korvane_create(korvane_handle platform, const char* class_name, korvane_handle* object);
/// "TuneGlobals", "PeakList" and so on, of an object that a call returned.
KORVANE_C_API int32_t korvane_class_name(korvane_handle object, korvane_value* name);
/// The number of a member, whatever its case. Error 438 for an unknown one.
KORVANE_C_API int32_t korvane_member(korvane_handle object, const char* name, int32_t* member);

enum korvane_access { KORVANE_CALL = 0, KORVANE_GET = 1, KORVANE_PUT = 2 };

/// Calls a member. The last `name_count` arguments are those of the parameters that `names` has, the others go by
/// position; those left out, or MISSING, have their defaults. An argument that the member changes gets its new value,
/// also where the call fails; what it owned is freed. `result`, where not null, is cleared first. `token`: an abort
/// token for this call, or 0. Errors: the member's; 438, 448, 449, 450, 13, 6, 94 for wrong calls, naming member and
/// parameter; 1 "User aborted" for the token and the events hook, in waits within 0.1 s.
KORVANE_C_API int32_t korvane_call(korvane_handle object, int32_t member, int32_t access, korvane_value* arguments,
                                   size_t count, const char* const* names, size_t name_count, korvane_handle token,
                                   korvane_value* result);
/// The same in its simplest form: a method or the reading of a property by name, arguments by position.
KORVANE_C_API int32_t korvane_call_named(korvane_handle object, const char* member, korvane_value* arguments,
                                         size_t count, korvane_value* result);

/// A token for calls that somebody else may want to end.
KORVANE_C_API int32_t korvane_token(korvane_handle* token);
/// From any thread: calls with the token end with ABORTED, now and later. The abort flag of the file is not touched.
KORVANE_C_API int32_t korvane_abort(korvane_handle token);

/// Called after every probe of an abundance search of a SpectrumParser: number, setpoint value, abundance in counts,
/// and the bracket. Anything but 0 aborts the call. Null ends it.
typedef int32_t (*korvane_probe)(void* context, int32_t number, double value, double abundance, double low,
                                 double high);
KORVANE_C_API int32_t korvane_on_probe(korvane_handle parser, korvane_probe probe, void* context);
/// The last search: how it ended (0 within tolerance, 1 at the resolution, 2 target never reached), value, abundance,
/// scaled target, speed-up factor, number of probes; an array of doubles.
KORVANE_C_API int32_t korvane_last_search(korvane_handle parser, korvane_value* outcome);
/// Standard errors of the last GetPeakInfoForCalibrantMasses, a row a calibrant: centroid (ns), height, width (ns),
/// area, number of ions; and the quality of the peak: clipped, overlapped, few ions (1 or 0), misfit. NaN where none
/// are stated. A matrix of doubles.
KORVANE_C_API int32_t korvane_last_errors(korvane_handle parser, korvane_value* rows);

/// The member tables as JSON: classes, records, enumerations, and the objects of a layer.
KORVANE_C_API int32_t korvane_tables(korvane_value* json);

#ifdef __cplusplus
}
#endif

#endif
