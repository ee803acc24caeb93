#include "effects/powercut.h"

namespace {

constexpr int sector = 512;

QByteArray resized(const QByteArray &bytes, int size)
{
    return bytes.leftJustified(size, '\0').left(size);
}

} // namespace

CutModel::CutModel(const PanelState &start)
    : now_(start)
{
}

void CutModel::offer(const QByteArray &path, const Content &content)
{
    if (!possible_[path].contains(content)) {
        possible_[path] << content;
    }
}

bool CutModel::become(const QByteArray &path, const Content &content)
{
    const Content old = now_.contains(path) ? Content(now_[path]) : std::nullopt;
    offer(path, old);
    offer(path, content);
    if (content) {
        now_[path] = *content;
    } else {
        now_.remove(path);
    }
    return true;
}

bool CutModel::written(const Operation &operation)
{
    const QByteArray old = now_.value(operation.path),
                     bytes = operation.bytes.left(int(operation.result));
    const int at = operation.at < 0 ? old.size() : int(operation.at), end = at + bytes.size();
    const auto with = [&](int length) {
        return old.leftJustified(at, '\0').replace(at, length, bytes.left(length));
    };
    if (end > old.size()) {
        become(operation.path, with(qMax(0, old.size() - at)));
    }
    for (int cut = (at / sector + 1) * sector; cut < end; cut += sector) {
        become(operation.path, with(cut - at));
    }
    return become(operation.path, with(bytes.size()));
}

bool CutModel::add(const Operation &operation)
{
    const QByteArray &path = operation.path;
    if (!operation.ok() || (operation.kind != Operation::SyncAll && !isState(path))) {
        return false;
    }
    const QByteArray flags = operation.args.join(',');
    switch (operation.kind) {
    case Operation::Open:
        if (flags.contains("O_TRUNC") || (flags.contains("O_CREAT") && !now_.contains(path))) {
            return become(path, QByteArray(""));
        }
        return false;
    case Operation::Write:
        return written(operation);
    case Operation::Truncate:
        // Lengths and bytes reach the medium each in their own time.
        for (const Content &content : possible_.value(path)) {
            if (content) {
                offer(path, resized(*content, int(operation.at)));
            }
        }
        return become(path, resized(now_.value(path), int(operation.at)));
    case Operation::Remove:
        return become(path, std::nullopt);
    case Operation::Rename:
        return become(operation.target, now_.value(path)) && become(path, std::nullopt);
    case Operation::SyncAll:
        possible_.clear();
        return true;
    case Operation::SyncFile:
        possible_.remove(path);
        return true;
    default:
        return false;
    }
}

QVector<PanelState> CutModel::states() const
{
    QVector<PanelState> states{now_};
    for (auto file = possible_.begin(); file != possible_.end(); ++file) {
        const QVector<PanelState> others = std::exchange(states, {});
        for (PanelState state : others) {
            for (const Content &content : file.value()) {
                state.remove(file.key());
                if (content) {
                    state[file.key()] = *content;
                }
                states << state;
            }
        }
    }
    return states;
}
