#pragma once

#include <cstddef>
#include <cstdint>

#include "fnd/Export.h"
#include "scr/Output.h"

namespace SCR {

class FileVariable;
class RunControl;

/// The open files of one interpreter's scripts, and the known failures of outputs. Thread rule of
/// the interpreter.
class OpenFiles {
public:
    /// `control` is that of the scripts; not owned, must outlive this object.
    explicit OpenFiles(const RunControl& control) : control_(control) {}
    OpenFiles(const OpenFiles&) = delete;
    OpenFiles& operator=(const OpenFiles&) = delete;
    /// Closes all files.
    ~OpenFiles() { closeAll(); }

    void closeAll() noexcept;
    /// Bytes that the open files take.
    std::size_t heapBytes() const { return heapBytes_; }

    const RunControl& control() const { return control_; }
    OutputFailures& failures() { return failures_; }

private:
    friend class FileVariable;

    void add(FileVariable& file) noexcept;
    void remove(FileVariable& file) noexcept;

    const RunControl& control_;
    FileVariable* first_ = nullptr;  // of the chain of open files; not owned
    std::size_t heapBytes_ = 0;
    OutputFailures failures_;
};

}  // namespace SCR
