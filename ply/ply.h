#pragma once

// A small writer of binary PLY files: one or more elements, each with scalar properties, written
// instance by instance and property by property through ply_write. Calls on a null handle do
// nothing and return 0, so a file that could not be created costs the caller no checks.

typedef struct PlyFile* p_ply;

// How the data after the header is stored: binary in the machine's byte order.
enum e_ply_storage_mode { PLY_DEFAULT };

// Scalar types under their PLY names: uchar, float.
enum e_ply_type { PLY_UCHAR, PLY_FLOAT };

// Receives every error message; without one, messages go to standard error.
typedef void (*p_ply_error_cb)(p_ply ply, const char* message);

// Creates the file. Returns null (after reporting) if it cannot be opened.
p_ply ply_create(const char* name, e_ply_storage_mode storage_mode, p_ply_error_cb error_cb);

// Declares an element with its number of instances; properties added next belong to it.
int ply_add_element(p_ply ply, const char* name, long ninstances);

// Declares a scalar property of the last element.
int ply_add_scalar_property(p_ply ply, const char* name, e_ply_type type);

// Writes the header; no declarations are taken afterwards.
int ply_write_header(p_ply ply);

// Writes the next value in file order, converted to the type of its property. uchar takes the
// value truncated towards zero and limited to 0..255 (NaN gives 0).
int ply_write(p_ply ply, double value);

// Closes the file and releases the handle. Reports an error, and returns 0, if fewer values
// were written than the header declares.
int ply_close(p_ply ply);
