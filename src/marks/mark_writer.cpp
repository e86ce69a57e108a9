#include "marks/mark_writer.h"

#include <cerrno>
#include <cstdio>
#include <utility>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "list/picture_list.h"
#include "marks/rated_file_name.h"
#include "settings/settings.h"

namespace orvanta::marks {

namespace {

constexpr int kTitleStoring = 10174;
constexpr int kTitleNotStored = 10172;
constexpr int kTextNothingApplies = 10171;
constexpr int kTextSidecarUpdate = 10173;
constexpr int kTextSidecarCreate = 10176;
constexpr int kTextEmbedded = 10153;
constexpr int kTextUnsupported = 10175;
constexpr int kTextNameTaken = 10182;
constexpr int kTextRenameFailed = 10183;

constexpr std::chrono::milliseconds kQueueWait{100};

std::vector<std::string> Extensions(std::string_view set) {
    std::vector<std::string> extensions;
    std::size_t start = 0;
    while (start <= set.size()) {
        const std::size_t end = std::min(set.find(';', start), set.size());
        if (end > start) {
            extensions.emplace_back(set.substr(start, end - start));
        }
        start = end + 1;
    }
    return extensions;
}

bool Exists(const std::string& path) {
    std::error_code error;
    return std::filesystem::exists(std::filesystem::symlink_status(path, error));
}

}  // namespace

StoreChoice StoreChoiceFromSettings() {
    StoreChoice choice;
    choice.sidecar = settings::CreateSidecarFiles.On();
    choice.embedded = settings::EmbedMetadata.On();
    choice.prefix = settings::PrefixFileNamesWithRating.On() && settings::SortByDateTime.Get() != 0;
    return choice;
}

MarkWriter::MarkWriter(MarkStores& stores, MarkWriterNotices& notices, list::PictureList* list)
    : stores_(stores), notices_(notices), list_(list) {
}

MarkWriter::~MarkWriter() {
    Stop();
}

void MarkWriter::Start() {
    if (!thread_.joinable()) {
        thread_ = std::jthread([this](std::stop_token stop) { Run(stop); });
    }
}

void MarkWriter::Stop() {
    if (thread_.joinable()) {
        thread_.request_stop();
        thread_.join();
    }
}

void MarkWriter::Queue(const MarkRequest& request, MarkTarget target,
                       std::optional<StoreChoice> choice) {
    {
        std::scoped_lock lock(mutex_);
        queue_.push_back({request, std::move(target), choice});
    }
    arrived_.notify_one();
}

bool MarkWriter::HasWork() const {
    std::scoped_lock lock(mutex_);
    return busy_ || !queue_.empty();
}

void MarkWriter::Run(std::stop_token stop) {
    // Marks are stored behind the decoders and the window: below normal priority.
    ::setpriority(PRIO_PROCESS, static_cast<id_t>(::syscall(SYS_gettid)), 5);
    while (!stop.stop_requested()) {
        Item item;
        {
            std::unique_lock lock(mutex_);
            if (!arrived_.wait_for(lock, stop, kQueueWait, [&] { return !queue_.empty(); })) {
                continue;
            }
            item = std::move(queue_.front());
            queue_.pop_front();
            busy_ = true;
        }
        (void)Serve(item.request, std::move(item.target),
                    item.choice ? *item.choice : StoreChoiceFromSettings());
        std::scoped_lock lock(mutex_);
        busy_ = false;
    }
}

void MarkWriter::Tell(int textId, int titleId, MessageIcon icon,
                      std::vector<i18n::FormatArg> arguments) {
    notices_.LeaveFullScreen46F();
    notices_.Message(textId, titleId, icon, std::move(arguments));
}

std::vector<StoreOutcome> MarkWriter::Serve(const MarkRequest& request, MarkTarget target,
                                            const StoreChoice& choice) {
    std::vector<StoreOutcome> outcomes;
    const MarkTime time = MarkTimeNow();
    const bool prefix = choice.prefix && request.IsRating();
    if (!choice.sidecar && !choice.embedded && !prefix) {
        Tell(kTextNothingApplies, kTitleNotStored, MessageIcon::Information, {});
        return outcomes;
    }
    bool stored = false;
    if (prefix) {
        stored = RenameWithPrefix(request, target, outcomes);
    }
    if (choice.sidecar) {
        const std::string sidecar = target.basePath + ".xmp";
        const bool update = Exists(sidecar);
        const Result result = update ? stores_.UpdateSidecar(sidecar, request, time)
                                     : stores_.CreateSidecar(sidecar, request, time);
        outcomes.push_back({StoreOutcome::Store::Sidecar, sidecar, result});
        if (result.Succeeded()) {
            stored = true;
        } else if (update) {
            Tell(kTextSidecarUpdate, kTitleStoring, MessageIcon::Stop, {sidecar, result.Code()});
            if (!choice.embedded) {
                ResetMark(request, target);
            }
        } else {
            Tell(kTextSidecarCreate, kTitleStoring, MessageIcon::Stop, {sidecar});
        }
    }
    if (choice.embedded) {
        std::string unsupported;
        for (const std::string& extension : Extensions(target.extensionSet)) {
            const std::string file = target.basePath + "." + extension;
            Result result = E_FAIL;
            for (int attempt = 1; attempt <= kSharingTries; ++attempt) {
                result = stores_.WriteEmbeddedMark(file, request, time);
                if (result != E_SHARING_VIOLATION || attempt == kSharingTries) {
                    break;
                }
                std::this_thread::sleep_for(retryDelay_);
            }
            outcomes.push_back({StoreOutcome::Store::Embedded, file, result});
            if (result.Succeeded()) {
                stored = true;
            } else if (result == E_UNSUPPORTED_TYPE) {
                if (unsupported.empty()) {
                    unsupported = file;
                }
            } else {
                Tell(kTextEmbedded, kTitleStoring, MessageIcon::Stop, {file, result.Code()});
            }
        }
        if (!stored && !unsupported.empty()) {
            Tell(kTextUnsupported, kTitleStoring, MessageIcon::Stop, {unsupported});
        }
    }
    if (!stored) {
        ResetMark(request, target);
    }
    return outcomes;
}

bool MarkWriter::RenameWithPrefix(const MarkRequest& request, MarkTarget& target,
                                  std::vector<StoreOutcome>& outcomes) {
    const std::optional<std::string> renamed = RatedFileName(target.basePath, request.value);
    if (!renamed) {
        return false;
    }
    if (*renamed == target.basePath) {
        return true;  // already carries the prefix
    }
    std::vector<std::string> suffixes;
    for (const std::string& extension : Extensions(target.extensionSet)) {
        suffixes.push_back("." + extension);
    }
    suffixes.emplace_back(".xmp");
    // Nothing is renamed when any of the new names is taken.
    for (const std::string& suffix : suffixes) {
        const std::string to = *renamed + suffix;
        if (Exists(to)) {
            Tell(kTextNameTaken, kTitleStoring, MessageIcon::Stop, {to});
            outcomes.push_back({StoreOutcome::Store::Prefix, to, HresultFromWin32(183)});
            return false;
        }
    }
    // The list takes the new name first, so that the watcher sees the renamed files arrive
    // as files of a listed entry rather than as new pictures.
    const bool rekey = list_ != nullptr && request.entry != nullptr;
    if (rekey) {
        (void)list_->Rebase(target.basePath, *renamed);
    }
    bool any = false;
    for (const std::string& suffix : suffixes) {
        const std::string from = target.basePath + suffix;
        if (!Exists(from)) {
            continue;
        }
        const std::string to = *renamed + suffix;
        if (std::rename(from.c_str(), to.c_str()) != 0) {
            const int error = errno;
            const Result result = ResultFromErrno(error);
            Tell(kTextRenameFailed, kTitleStoring, MessageIcon::Stop,
                 {from, to, result.Code() & 0xFFFFu});
            outcomes.push_back({StoreOutcome::Store::Prefix, from, result});
            break;
        }
        outcomes.push_back({StoreOutcome::Store::Prefix, to, S_OK});
        any = true;
    }
    if (!any) {
        if (rekey) {
            (void)list_->Rebase(*renamed, target.basePath);
        }
        return false;
    }
    const std::string old = std::exchange(target.basePath, *renamed);
    // Requests still queued for the entry name its files by the new name from now on.
    std::scoped_lock lock(mutex_);
    for (Item& item : queue_) {
        if (item.target.basePath == old) {
            item.target.basePath = target.basePath;
        }
    }
    return true;
}

void MarkWriter::ResetMark(const MarkRequest& request, const MarkTarget& target) {
    if (list_ == nullptr || request.entry == nullptr) {
        return;
    }
    (void)list_->VisitListed(request.entry, target.basePath, [&](list::PictureEntry& entry) {
        if (request.isLabel) {
            entry.marks.label = -1;
        } else if (request.isUrgency) {
            entry.marks.urgency = -1;
        } else {
            entry.marks.rating = -1;
        }
    });
}

Result QueueMarkWrite(list::PictureList& list, MarkWriter* writer, list::PictureEntry* entry,
                      std::uint32_t value, bool isLabel, std::uint32_t convention, bool isUrgency) {
    if (writer == nullptr) {
        return E_UNEXPECTED;
    }
    if (entry == nullptr) {
        return E_INVALIDARG;
    }
    MarkTarget target;
    list.ForEachFrameOfFile(*entry, [&](list::PictureEntry& frame) {
        const auto mark = static_cast<std::int32_t>(value);
        if (isLabel) {
            frame.marks.label = mark;
            frame.marks.labellingConvention = static_cast<std::int32_t>(convention);
        } else if (isUrgency) {
            frame.marks.urgency = mark;
        } else {
            frame.marks.rating = mark;
        }
        if (&frame == entry) {
            target.basePath = frame.BasePath();
            target.extensionSet = frame.extensionSet;
        }
    });
    MarkRequest request;
    request.value = value;
    request.isLabel = isLabel;
    request.convention = convention;
    request.isUrgency = isUrgency;
    request.entry = entry;
    writer->Queue(request, std::move(target));
    return S_OK;
}

}  // namespace orvanta::marks
