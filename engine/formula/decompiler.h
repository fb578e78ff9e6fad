// From a compiled formula back to its text. The text compiles to the same bytes: blanks, line ends and the
// spelling of keywords are those of this file, all else is as it was written.
#pragma once

#include <string>

#include "formula/program.h"

namespace brynd::formula {

// The text of one part. Fails with kFormulaBad when the code, though safe to run, is not what a text compiles
// to.
std::string Decompile(const Program& program, Part part);

// The main part.
std::string Decompile(const Program& program);

}  // namespace brynd::formula
