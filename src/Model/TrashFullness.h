#pragma once

#include <QObject>
#include <cstdint>

namespace quillane
{

class VolumeObserver;

// Whether any trash location of the observer's list holds items, as a desktop's trash icon
// shows it. It is read again whenever a rebuilt list is published (a mount, a change of a trash
// folder, an emptying), on the work queue; only the newest reading is published, on the main
// thread.
class TrashFullness : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY(TrashFullness)
    Q_PROPERTY(bool full READ isFull NOTIFY fullChanged)

public:
    explicit TrashFullness(VolumeObserver& observer, QObject* parent = nullptr);

    bool isFull() const { return m_full; }

Q_SIGNALS:
    void fullChanged(bool full);

private:
    void check();
    void setFull(bool full);

    VolumeObserver& m_observer;
    bool m_full = false;
    std::uint64_t m_readings = 0; // the number of the newest reading
};

} // namespace quillane
