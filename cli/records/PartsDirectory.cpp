#include "cli/records/PartsDirectory.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "cli/records/Digest.h"

namespace Cli {

namespace fs = std::filesystem;

bool PartsDirectory::add(const std::string& name) {
    std::optional<Manifest> manifest = Manifest::ofFile(path_ + "/" + name);
    if (!manifest) {
        error_ = path_ + "/" + name + ": no manifest of this version of kestrel";
        return false;
    }
    manifests_.push_back(std::move(*manifest));
    return true;
}

bool PartsDirectory::isWhole(const Manifest& manifest) {
    for (const Manifest::File* const file :
         {&manifest.output, &manifest.rejects, &manifest.state}) {
        if (file->name.empty()) continue;
        if (Digest::ofFile(path_ + "/" + file->name) == file->digest) continue;
        error_ = path_ + "/" + file->name + " is not as its manifest says";
        return false;
    }
    return true;
}

bool PartsDirectory::read() {
    std::error_code error;
    fs::directory_iterator entry(path_, error);
    for (const fs::directory_iterator end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename();
        if (name.starts_with("manifest-") && !add(name)) return false;
    }
    if (error) {
        error_ = path_ + ": " + error.message();
        return false;
    }
    if (manifests_.empty()) {
        error_ = path_ + " holds no parts";
        return false;
    }
    std::sort(manifests_.begin(), manifests_.end(),
              [](const Manifest& a, const Manifest& b) { return a.part < b.part; });
    Manifest like = first();
    // Nobody knows how many messages there are. They begin and end with those that are there.
    const bool areMessages = first().parts == 0;
    const std::string kind = areMessages ? "message " : "part ";
    const std::int64_t begin = areMessages ? first().part : 1;
    const std::int64_t end = areMessages ? manifests_.back().part : first().parts;
    for (std::int64_t part = begin; part <= end; ++part) {
        const auto at = static_cast<std::size_t>(part - begin);
        if (at >= manifests_.size() || manifests_[at].part != part) {
            error_ = path_ + ": " + kind + std::to_string(part) +
                     (areMessages ? "" : " of " + std::to_string(end)) + " is missing";
            return false;
        }
        const Manifest& manifest = manifests_[at];
        like.part = part;
        if (areMessages) like.inputSize = manifest.inputSize;
        if (!manifest.isSameJob(like)) {
            error_ = path_ + ": " + kind;
            error_.append(std::to_string(part))
                .append(" was made by another script, from other files or with other options than ")
                .append(kind)
                .append(std::to_string(begin));
            return false;
        }
        if (!isWhole(manifest)) return false;
        const auto place = [&](const Manifest::File& file) {
            return file.name.empty() ? std::string() : path_ + "/" + file.name;
        };
        files_.push_back({place(manifest.output), place(manifest.rejects), place(manifest.state)});
        counts_.read += manifest.counts.read;
        counts_.written += manifest.counts.written;
        counts_.dropped += manifest.counts.dropped;
        counts_.rejected += manifest.counts.rejected;
        counts_.extra += manifest.counts.extra;
    }
    return true;
}

}  // namespace Cli
