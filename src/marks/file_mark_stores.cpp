#include "marks/embedded_mark_writer.h"
#include "marks/mark_stores.h"
#include "marks/sidecar_file.h"

namespace orvanta::marks {

namespace {

class FileStores final : public MarkStores {
public:
    Result CreateSidecar(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime& time) override {
        return CreateSidecarFile(sidecar, request, time);
    }
    Result UpdateSidecar(const std::filesystem::path& sidecar, const MarkRequest& request,
                         const MarkTime& time) override {
        return UpdateSidecarFile(sidecar, request, time);
    }
    Result WriteEmbeddedMark(const std::filesystem::path& file, const MarkRequest& request,
                             const MarkTime& time) override {
        return WriteEmbeddedMarkToFile(file, request, time);
    }
};

}  // namespace

MarkStores& FileMarkStores() {
    static FileStores stores;
    return stores;
}

}  // namespace orvanta::marks
