#pragma once

#include "fnd/String.h"

namespace SCR {

class FileAccess;
class RunControl;

/// Copies the file `source` of `files` to `target`, which is made, or emptied if it exists. False
/// when that fails, even if only closing the copy fails; what was written by then stays. Leaves
/// `source` alone when both names are of one file, and `target` when `source` cannot be read. Gives
/// up when the script of `control` has to stop.
bool copyFile(const FileAccess& files, const FND::String& source, const FND::String& target,
              const RunControl& control);

}  // namespace SCR
