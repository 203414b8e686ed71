/*
 * libmeshdrone: PRC models decoded into flat, coloured triangle meshes.
 *
 * PRC is the 3D format that PDF files carry in the /3DD stream of a 3D
 * annotation. This library is the decoder of the meshdrone worker behind a
 * plain C interface: give it the bytes of one PRC stream and it returns the
 * mesh the worker would send to its host (vertex positions, triangles, one
 * colour per vertex), one record per node of the product structure, and the
 * statistics of the file header. Whatever the worker refuses, the library
 * refuses with the same result and message.
 *
 *     meshdrone_model* model;
 *     meshdrone_result r = meshdrone_decode_file("part.prc", &model);
 *     if (r != MESHDRONE_OK) {
 *         fprintf(stderr, "%s\n", meshdrone_result_message(r));
 *         return 1;
 *     }
 *     ... model->positions, model->triangles, model->colors, model->parts ...
 *     meshdrone_free(model);
 *
 * The library keeps no global state: every call works on its own data, so
 * any number of threads may decode at once. A model is immutable once
 * returned and may be read from any thread; it is released by exactly one
 * call to meshdrone_free. Hostile input is expected: a file that cannot be
 * decoded is answered with a result code, never with a crash or an unbounded
 * use of memory or time.
 *
 * Link with -lmeshdrone (pkg-config meshdrone), or in CMake:
 *     find_package(meshdrone REQUIRED)
 *     target_link_libraries(app PRIVATE meshdrone::meshdrone)
 * meshdrone::meshdrone_static is the static library; a program that links it
 * must also link the C++ runtime and zlib (CMake does this itself).
 */
#ifndef MESHDRONE_MESHDRONE_H
#define MESHDRONE_MESHDRONE_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32) && !defined(MESHDRONE_STATIC)
#if defined(MESHDRONE_BUILDING)
#define MESHDRONE_API __declspec(dllexport)
#else
#define MESHDRONE_API __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define MESHDRONE_API __attribute__((visibility("default")))
#else
#define MESHDRONE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The result of a call. Codes 1 to 3 are the decoder's outcomes, for which
 * the worker writes a failure header with the outcome code (the code minus
 * one); the codes after them are the failures the worker answers with an
 * error record, whose Italian text meshdrone_result_message returns.
 */
typedef enum meshdrone_result {
    MESHDRONE_OK = 0,
    MESHDRONE_NO_RESULT = 1,       /* outcome 0: memory ran out while the output arrays were built */
    MESHDRONE_NO_GEOMETRY = 2,     /* outcome 1: the file decoded but holds no triangle to show */
    MESHDRONE_DECODING_ERROR = 3,  /* outcome 2: malformed or unsupported PRC data */
    MESHDRONE_OPEN_FAILED = 4,     /* the file cannot be opened */
    MESHDRONE_EMPTY_INPUT = 5,     /* no byte, or more than 2^31 - 1 of them */
    MESHDRONE_OUT_OF_MEMORY = 6,   /* no memory for the file's bytes */
    MESHDRONE_SHORT_READ = 7,      /* the file ended before its announced size */
    MESHDRONE_TOO_LARGE = 8,       /* the mesh and records would exceed 256 MiB */
    MESHDRONE_INVALID_ARGUMENT = 9 /* a required pointer was null: a fault of the caller */
} meshdrone_result;

/* The parent of a root part. */
#define MESHDRONE_NO_PARENT 0xFFFFFFFFu

/*
 * One node of the assembled product structure, in the byte layout of the
 * worker's part record (188 bytes).
 */
typedef struct meshdrone_part {
    char name[128];          /* the node's name as stored (UTF-8), cut at 127 bytes, NUL-terminated */
    uint32_t index;          /* the record's own position, from 0 */
    uint32_t parent;         /* position of the parent's record; MESHDRONE_NO_PARENT for a root */
    uint32_t first_triangle; /* first triangle of the node's own part */
    uint32_t triangle_count; /* triangles of the node's own part, children not included; 0 without a part */
    uint8_t reserved[16];
    float box_min[3];        /* box of every vertex of the node and its whole subtree; */
    float box_max[3];        /* both corners (0, 0, 0) when the subtree has none */
    uint8_t reserved2[4];
} meshdrone_part;

/*
 * A decoded model. Every array belongs to the model and lives until
 * meshdrone_free. The triangle ranges of the parts with triangles lie inside
 * the triangle array and do not overlap. When the product structure could
 * not be followed, every tessellation is drawn untransformed and there are
 * no parts.
 */
typedef struct meshdrone_model {
    const float* positions;      /* vertex_count x 3: x, y, z */
    const uint32_t* triangles;   /* triangle_count x 3 indices into the vertices */
    const uint8_t* colors;       /* vertex_count x 3: red, green, blue */
    const meshdrone_part* parts; /* part_count records in node order; NULL when part_count is 0 */
    uint32_t vertex_count;
    uint32_t triangle_count;     /* at least 1 */
    uint32_t part_count;
    /* The file header's versions and number of file structures. */
    uint32_t minimal_version_for_read;
    uint32_t authoring_version;
    uint32_t number_of_file_structures;
    /* Colours, materials and styles summed over the globals of every file structure. */
    uint32_t color_count;
    uint32_t material_count;
    uint32_t style_count;
    /*
     * NULL for a model of the worker's decoder. For one of
     * meshdrone_decode_exact: what the exact decoder reports, one statement a
     * line, UTF-8, NUL-terminated: "tessellated from exact surfaces, chord
     * tolerance 0.002", then one line per kind of face it left out
     * ("3 faces on offset surfaces skipped").
     */
    const char* exact_report;
} meshdrone_model;

/* The library's version, "MAJOR.MINOR". */
MESHDRONE_API const char* meshdrone_version(void);

/*
 * Decodes the PRC stream of size bytes at data. On MESHDRONE_OK *model is the
 * decoded model; on any other result *model is NULL. data is only read, and
 * not kept: it may be released as soon as the call returns.
 */
MESHDRONE_API meshdrone_result meshdrone_decode(const void* data, size_t size, meshdrone_model** model);

/*
 * Reads the file at path (UTF-8) whole, then decodes it as meshdrone_decode
 * does; the file's failures are those the worker reports for its input file.
 */
MESHDRONE_API meshdrone_result meshdrone_decode_file(const char* path, meshdrone_model** model);

/*
 * The exact decoder, for the many files (those Asymptote writes by default,
 * for one) that store surfaces only as exact geometry, where
 * meshdrone_decode answers MESHDRONE_NO_GEOMETRY: the same walk of the
 * product structure, placements and colours, with every B-rep body's faces
 * (spheres, cylinders, cones, tori, ruled and NURBS surfaces, compressed
 * Bezier patches) tessellated to a chord tolerance of 0.002 of the model's
 * bounding box diagonal. Faces it cannot draw (trimmed faces, other surface
 * kinds) are left out and named in exact_report, never guessed. Results as
 * for meshdrone_decode; the triangle count is bounded by a budget of 2^23.
 * Exact surfaces are also found in files with tessellations: this call
 * draws both, the tessellation of an item where it has one.
 */
MESHDRONE_API meshdrone_result meshdrone_decode_exact(const void* data, size_t size, meshdrone_model** model);
MESHDRONE_API meshdrone_result meshdrone_decode_file_exact(const char* path, meshdrone_model** model);

/* Releases a model and every array of it; NULL is allowed. */
MESHDRONE_API void meshdrone_free(meshdrone_model* model);

/*
 * The message of a result: for the failures the worker answers with an error
 * record, its exact (Italian) text; for the others a fixed English sentence.
 * A static string, never NULL.
 */
MESHDRONE_API const char* meshdrone_result_message(meshdrone_result result);

/*
 * The outcome code the worker's failure header carries for this result (0, 1
 * or 2), or -1 when the worker answers it otherwise.
 */
MESHDRONE_API int meshdrone_result_outcome(meshdrone_result result);

#ifdef __cplusplus
}
#endif

#endif
