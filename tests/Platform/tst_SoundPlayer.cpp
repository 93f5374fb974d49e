#include "Platform/BundleInfo.h"
#include "Platform/linux/CommandSoundPlayer.h"
#include "Platform/multimedia/QtSoundPlayer.h"

#include <QAudioDecoder>
#include <QAudioDevice>
#include <QAudioOutput>
#include <QEventLoop>
#include <QFile>
#include <QMediaDevices>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>
#include <cstdlib>
#include <fstream>

using namespace quillane;
namespace fs = std::filesystem;

namespace
{

const std::string noOutput = "no audio output device";

std::uint32_t bigEndian(const std::string& bytes, std::size_t at, int size)
{
    std::uint32_t value = 0;
    for (int i = 0; i < size; ++i)
        value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
    return value;
}

// Every error a play reports, and whether one came before play() returned.
struct Errors {
    std::vector<std::string> texts;
    bool insidePlay = false;
    bool playing = false;

    void play(SoundPlayer& player, const fs::path& file)
    {
        playing = true;
        player.play(file, [this](const std::string& error) {
            insidePlay = insidePlay || playing;
            texts.push_back(error);
        });
        playing = false;
    }
    // Whether a second error follows the first: GStreamer sends several for one failure.
    bool more() const
    {
        return QTest::qWaitFor([&] { return texts.size() > 1; }, 1000);
    }
};

} // namespace

class TestSoundPlayer : public QObject
{
    Q_OBJECT

private:
    fs::path m_sound;
    QTemporaryDir m_scratch;

private Q_SLOTS:
    void initTestCase()
    {
        const auto sound = BundleInfo::current().resource("empty trash.aif");
        QVERIFY(sound);
        m_sound = *sound;
    }

    // The sound ships as 16-bit mono AIFF and is not silent (its length: qtDecodesTheSound).
    void soundIsLoudMonoAiff()
    {
        std::ifstream in(m_sound, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(in), {}};
        QVERIFY(bytes.size() > 12 && bytes.starts_with("FORM") && bytes.substr(8, 4) == "AIFF");
        int channels = 0, bits = 0, peak = 0;
        for (std::size_t at = 12; at + 8 <= bytes.size();) {
            const std::string id = bytes.substr(at, 4);
            const std::size_t size = bigEndian(bytes, at + 4, 4);
            QVERIFY(at + 8 + size <= bytes.size());
            if (id == "COMM") {
                channels = int(bigEndian(bytes, at + 8, 2));
                bits = int(bigEndian(bytes, at + 14, 2));
            } else if (id == "SSND") {
                for (std::size_t sample = at + 16 + bigEndian(bytes, at + 8, 4);
                     sample + 2 <= at + 8 + size; sample += 2)
                    peak = std::max(
                        peak, std::abs(static_cast<std::int16_t>(bigEndian(bytes, sample, 2))));
            }
            at += 8 + size + size % 2;
        }
        QCOMPARE(channels, 1);
        QCOMPARE(bits, 16);
        QVERIFY2(peak > 32767 / 4, QByteArray::number(peak).constData());
    }

    // Qt Multimedia decodes it here: the backend has what it needs for AIFF. Decoding needs no
    // audio device and ends in a signal however long it takes, so the test waits for that.
    void qtDecodesTheSound()
    {
        QAudioDecoder decoder;
        qint64 decoded = 0; // µs
        bool ended = false;
        QEventLoop loop;
        connect(&decoder, &QAudioDecoder::bufferReady, this,
                [&] { decoded += decoder.read().duration(); });
        const auto end = [&] {
            ended = true;
            loop.quit();
        };
        connect(&decoder, &QAudioDecoder::finished, this, end);
        connect(&decoder, qOverload<QAudioDecoder::Error>(&QAudioDecoder::error), this, end);
        QAudioFormat format; // as the sound is stored
        format.setSampleFormat(QAudioFormat::Int16);
        format.setChannelCount(1);
        format.setSampleRate(44100);
        decoder.setAudioFormat(format);
        decoder.setSource(QUrl::fromLocalFile(QFile::decodeName(m_sound.c_str())));
        decoder.start();
        if (!ended)
            loop.exec();
        QVERIFY2(decoder.error() == QAudioDecoder::NoError, qPrintable(decoder.errorString()));
        QVERIFY2(decoded > 200'000 && decoded < 1'000'000, QByteArray::number(decoded).constData());
    }

    void reportsOneFailure_data()
    {
        QTest::addColumn<bool>("output");
        QTest::addColumn<QString>("content"); // empty: no file at all
        QTest::newRow("no output") << false << QString();
        QTest::newRow("missing file") << true << QString();
        QTest::newRow("not a sound") << true << QStringLiteral("FORM, but nothing of a sound");
    }

    // Each failure is reported once, after play() returned; only a missing output says so. A
    // play replaced by the next one says nothing more, even when it was bound to fail.
    void reportsOneFailure()
    {
        QFETCH(bool, output);
        QFETCH(QString, content);
        const fs::path file = m_scratch.filePath(QStringLiteral("sound.aif")).toStdString();
        fs::remove(file);
        if (!content.isEmpty())
            std::ofstream(file) << content.toStdString();
        QtSoundPlayer player([output] { return output; });
        Errors replaced, errors;
        replaced.play(player, m_scratch.filePath(QStringLiteral("none")).toStdString());
        errors.play(player, file);
        QTRY_COMPARE_WITH_TIMEOUT(errors.texts.size(), 1u, 10000);
        QVERIFY(!errors.insidePlay);
        QVERIFY(!errors.more());
        QCOMPARE(replaced.texts.size(), 0u);
        if (!output)
            QCOMPARE(errors.texts.front(), noOutput);
        else
            QVERIFY(!errors.texts.front().empty() && errors.texts.front() != noOutput);
    }

    // The real sound on this machine's output, if it has one; with none the player says so.
    void playsOnTheDefaultOutput()
    {
        const bool hasOutput = !QMediaDevices::defaultAudioOutput().isNull();
        Errors errors;
        {
            QtSoundPlayer player;
            errors.play(player, m_sound);
            if (!hasOutput)
                QTRY_COMPARE(errors.texts, std::vector<std::string>{noOutput});
            else
                (void)QTest::qWaitFor([&] { return !errors.texts.empty(); }, 1500);
        }
        QVERIFY(!errors.insidePlay);
    }

    // The command line's player runs the sound server's player on the file and tells when it
    // ended, whatever became of it: played, failed, not installed, or stopped at the bound.
    void commandPlayerEnds_data()
    {
        QTest::addColumn<QString>("script"); // null: no player is installed
        QTest::addColumn<QString>("error");  // what it reports; empty: nothing
        QTest::newRow("plays") << QStringLiteral("exit 0") << QString();
        QTest::newRow("fails") << QStringLiteral("echo 'no server to play on'; exit 1")
                               << QStringLiteral("no server to play on");
        QTest::newRow("hangs") << QStringLiteral("exec sleep 60")
                               << QStringLiteral("did not end within 300 ms and was stopped");
        QTest::newRow("not installed")
            << QString() << QStringLiteral("no sound player is installed (quillane-test-player)");
    }
    void commandPlayerEnds()
    {
        QFETCH(QString, script);
        QFETCH(QString, error);
        const fs::path folder = m_scratch.filePath(QStringLiteral("player")).toStdString();
        const fs::path player = folder / "quillane-test-player";
        const fs::path played = folder / "played";
        fs::remove_all(folder);
        fs::create_directories(folder);
        if (!script.isNull()) {
            std::ofstream(player) << "#!/bin/sh\nprintf '%s' \"$1\" > '" << played.native() << "'\n"
                                  << script.toStdString() << "\n";
            fs::permissions(player, fs::perms::owner_all);
        }
        // The first player that is installed plays; none is on the path by this name.
        CommandSoundPlayer sound(
            std::chrono::milliseconds(300),
            script.isNull() ? std::vector<std::string>{"quillane-test-player"}
                            : std::vector<std::string>{"quillane-test-player", player.native()});
        Errors errors;
        int finished = 0;
        errors.play(sound, m_sound);
        sound.whenFinished([&] { ++finished; });
        QTRY_COMPARE_WITH_TIMEOUT(finished, 1, 10000);
        QVERIFY(!errors.insidePlay);
        if (error.isEmpty())
            QCOMPARE(errors.texts, std::vector<std::string>{});
        else
            QVERIFY2(errors.texts.size() == 1 &&
                         QString::fromStdString(errors.texts.front()).contains(error),
                     errors.texts.empty() ? "nothing" : errors.texts.front().c_str());
        if (!script.isNull()) {
            std::ifstream in(played);
            QCOMPARE(std::string(std::istreambuf_iterator<char>(in), {}), m_sound.native());
        }
        QTest::qWait(50);
        QCOMPARE(finished, 1);
    }
};

QTEST_MAIN(TestSoundPlayer)
#include "tst_SoundPlayer.moc"
