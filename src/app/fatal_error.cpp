#include "src/app/fatal_error.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

namespace {

std::string failure_text() {
  const std::exception_ptr e = std::current_exception();
  if (!e) return "the program ended without an exception to report";
  try {
    std::rethrow_exception(e);
  } catch (const std::exception& x) {
    std::string text = x.what();
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
  } catch (...) {
    return "an exception of unknown type";
  }
}

[[noreturn]] void report_and_abort() {
  std::cout.flush();
  std::cerr << "quillara: internal error: " << failure_text() << std::endl;
  std::abort();
}

}  // namespace

void report_internal_errors() { std::set_terminate(report_and_abort); }
