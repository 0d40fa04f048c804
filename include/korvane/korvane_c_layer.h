// Objects made in C, or in whatever can lend functions to C: an instrument layer, a calibration, a peak list.
#ifndef KORVANE_KORVANE_C_LAYER_H
#define KORVANE_KORVANE_C_LAYER_H

#include "korvane/korvane_c.h"

#ifdef __cplusplus
extern "C" {
#endif

/// A member of such an object. Arguments stand in the order of the parameters; those by reference are changed in place.
/// Returns KORVANE_OK or, with `error` filled in, anything else. A result that is left Empty is none. What result and
/// arguments point to must stay until the object is called again; the library copies it. A handle as an owner is taken
/// over.
typedef int32_t (*korvane_function)(void* context, korvane_value* arguments, size_t count, korvane_value* result,
                                    korvane_error* error);
typedef struct korvane_entry {
    const char* member;
    korvane_function function;
} korvane_entry;
/// The table of a class; copied. The members of a layer's objects stand in docs/instrument-objects.md; what is not in
/// the table is error 438 when it is asked for.
typedef struct korvane_class {
    int32_t version;  ///< KORVANE_C_VERSION; any other is refused
    const char* name;
    const korvane_entry* entries;
    size_t count;
    void (*destroy)(void* context);  ///< called once, when nobody holds the object any more; null: not
} korvane_class;

/// An object whose members are those functions. Whatever they do wrong (kinds and lengths that do not fit, null, NaN
/// where a number belongs) is an error that names the call.
KORVANE_C_API int32_t korvane_implement(const korvane_class* table, void* context, korvane_handle* object);
/// Checks an InstrumentLayer as `korvane conform` does: rows of operation, check, "passed" or "failed", detail.
KORVANE_C_API int32_t korvane_check_layer(korvane_handle layer, korvane_value* rows);

#ifdef __cplusplus
}
#endif

#endif
