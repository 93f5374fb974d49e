#include "Platform/linux/CommandSoundPlayer.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTimer>
#include <utility>

namespace fs = std::filesystem;

namespace quillane
{

CommandSoundPlayer::CommandSoundPlayer(std::chrono::milliseconds bound,
                                       std::vector<std::string> players)
    : m_bound(bound), m_players(std::move(players))
{
}

CommandSoundPlayer::~CommandSoundPlayer()
{
    if (m_process) {
        m_process->disconnect(this);
        m_process->kill();
        m_process->waitForFinished(1000);
    }
}

void CommandSoundPlayer::play(const fs::path& file, ErrorHandler onError)
{
    if (m_process) { // the sound it replaces reports nothing more
        m_onError = nullptr;
        m_process->disconnect(this);
        m_process->kill();
        m_process->waitForFinished(1000);
        m_process->deleteLater();
        m_process = nullptr;
    }
    m_onError = std::move(onError);

    QString program;
    for (const std::string& name : m_players) {
        program = QStandardPaths::findExecutable(QString::fromStdString(name));
        if (!program.isEmpty())
            break;
    }
    if (program.isEmpty()) {
        QStringList names;
        for (const std::string& name : m_players)
            names << QString::fromStdString(name);
        const std::string error = "no sound player is installed (" +
                                  names.join(QStringLiteral(" or ")).toStdString() + ")";
        QTimer::singleShot(0, this, [this, error] {
            report(error);
            ended();
        });
        return;
    }

    auto* process = new QProcess(this);
    m_process = process;
    process->setProcessChannelMode(QProcess::MergedChannels);
    process->setStandardInputFile(QProcess::nullDevice());
    connect(process, &QProcess::errorOccurred, this, [this, process](QProcess::ProcessError error) {
        if (process != m_process || error != QProcess::FailedToStart)
            return;
        report(process->errorString().toStdString());
        ended();
    });
    connect(process, &QProcess::finished, this,
            [this, process](int exitCode, QProcess::ExitStatus status) {
                if (process != m_process)
                    return;
                if (status != QProcess::NormalExit || exitCode != 0) {
                    const QString said = QString::fromLocal8Bit(process->readAll()).trimmed();
                    report(said.isEmpty() ? "the sound player failed" : said.toStdString());
                }
                ended();
            });
    // Past the bound, the player is stopped.
    QTimer::singleShot(m_bound, process, [this, process] {
        report("the sound player did not end within " + std::to_string(m_bound.count()) +
               " ms and was stopped");
        process->kill();
    });
    process->start(program, {QFile::decodeName(file.c_str())});
}

void CommandSoundPlayer::whenFinished(std::function<void()> done)
{
    if (m_process) {
        m_whenFinished.push_back(std::move(done));
        return;
    }
    QTimer::singleShot(0, this, std::move(done));
}

void CommandSoundPlayer::report(const std::string& error)
{
    if (const ErrorHandler onError = std::exchange(m_onError, nullptr))
        onError(error);
}

void CommandSoundPlayer::ended()
{
    if (m_process) {
        m_process->deleteLater();
        m_process = nullptr;
    }
    for (auto& done : std::exchange(m_whenFinished, {}))
        done();
}

} // namespace quillane
