#pragma once

// Makes std::terminate print what failed before the process aborts: the text of the exception
// that ended it (one thrown inside a parallel region, or one nothing caught), as
// "quillara: internal error: TEXT" on standard error.
void report_internal_errors();
