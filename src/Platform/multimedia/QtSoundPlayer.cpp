#include "Platform/multimedia/QtSoundPlayer.h"

#include <QAudioDevice>
#include <QAudioOutput>
#include <QFile>
#include <QMediaDevices>
#include <QMediaPlayer>
#include <QTimer>
#include <QUrl>
#include <utility>

namespace fs = std::filesystem;

namespace quillane
{

// One play: its player, its output, and where its first error goes.
class QtSoundPlayer::Playback final : public QObject
{
public:
    explicit Playback(ErrorHandler onError) : m_onError(std::move(onError)) {}

    void start(const fs::path& file)
    {
        m_output = new QAudioOutput(this);
        m_player = new QMediaPlayer(this);
        m_player->setAudioOutput(m_output);
        // Queued, so that an error never reaches the caller from inside play().
        connect(
            m_player, &QMediaPlayer::errorOccurred, this,
            [this](QMediaPlayer::Error, const QString& text) {
                report(text.isEmpty() ? std::string("the sound cannot be played")
                                      : text.toStdString());
            },
            Qt::QueuedConnection);
        m_player->setSource(QUrl::fromLocalFile(QFile::decodeName(file.c_str())));
        m_player->play();
    }

    void fail(std::string error)
    {
        QTimer::singleShot(0, this, [this, error = std::move(error)] { report(error); });
    }

    // Stops the sound; nothing more is reported. The handler may be what replaces or ends this
    // play, in which case the player is still in use further up and goes once control is back
    // in the event loop.
    void retire()
    {
        m_onError = nullptr;
        if (m_player)
            m_player->stop();
        if (m_reporting)
            deleteLater();
        else
            delete this;
    }

private:
    void report(const std::string& error)
    {
        // GStreamer follows the error that says what went wrong with more general ones.
        const ErrorHandler onError = std::exchange(m_onError, nullptr);
        if (!onError)
            return;
        m_reporting = true;
        onError(error);
        m_reporting = false;
    }

    ErrorHandler m_onError;
    bool m_reporting = false;
    QAudioOutput* m_output = nullptr;
    QMediaPlayer* m_player = nullptr;
};

void QtSoundPlayer::Retire::operator()(Playback* playback) const
{
    playback->retire();
}

QtSoundPlayer::QtSoundPlayer()
    : QtSoundPlayer([] { return !QMediaDevices::defaultAudioOutput().isNull(); })
{
}

QtSoundPlayer::QtSoundPlayer(OutputCheck hasOutput) : m_hasOutput(std::move(hasOutput)) {}

QtSoundPlayer::~QtSoundPlayer() = default;

void QtSoundPlayer::play(const fs::path& file, ErrorHandler onError)
{
    m_playback.reset();
    m_playback.reset(new Playback(std::move(onError)));
    // Without an output Qt would play into nothing and say nothing.
    if (m_hasOutput())
        m_playback->start(file);
    else
        m_playback->fail("no audio output device");
}

} // namespace quillane
