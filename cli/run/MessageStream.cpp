#include "cli/run/MessageStream.h"

#include "cli/Loading.h"

namespace Cli {

std::unique_ptr<MessageStream> MessageStream::open(const Source& source, std::string& error) {
    void* const entry = loadPart("libkestrel-nats.so", openNatsStreamS, error);
    if (entry == nullptr) return nullptr;
    return std::unique_ptr<MessageStream>(reinterpret_cast<OpenStream>(entry)(source, error));
}

}  // namespace Cli
