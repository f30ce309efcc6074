#include "scr/os/OpenFiles.h"

#include "scr/Variable.h"

namespace SCR {

void OpenFiles::closeAll() noexcept {
    while (first_ != nullptr) first_->close();
}

void OpenFiles::add(FileVariable& file) noexcept {
    file.previous_ = nullptr;
    file.next_ = first_;
    if (first_ != nullptr) first_->previous_ = &file;
    first_ = &file;
    heapBytes_ += file.heapBytes();
}

void OpenFiles::remove(FileVariable& file) noexcept {
    (file.previous_ != nullptr ? file.previous_->next_ : first_) = file.next_;
    if (file.next_ != nullptr) file.next_->previous_ = file.previous_;
    heapBytes_ -= file.heapBytes();
}

}  // namespace SCR
