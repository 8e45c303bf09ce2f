// A window to look through a movie: viewer FILE [SECONDS] [--screenshot PNG]
#include "window.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QPixmap>
#include <QScreen>
#include <QWindow>
#include <cstdio>

namespace {

constexpr int kKeptPictures = 32;  // per worker; one is as large as the file's pictures are

int complain(const QString& text) {
    (void)std::fprintf(stderr, "viewer: %s\n", text.toLocal8Bit().constData());
    return 1;
}

/// Waits until the screen shows what was asked for, and writes what it shows.
int take_screenshot(Window& window, const QString& file) {
    while (!window.windowHandle()->isExposed() || !window.player().is_settled()) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    window.repaint();
    QPixmap shot = window.screen()->grabWindow(window.winId());
    if (shot.isNull()) {
        shot = window.grab();  // some systems let nobody look at the screen
    }
    if (!shot.save(file, "PNG")) {
        return complain(QStringLiteral("cannot write %1").arg(file));
    }
    return window.view().has_picture() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setStyle(QStringLiteral("Fusion"));
    QApplication::setPalette(QColor(48, 48, 52));  // the other colours follow this one

    QCommandLineParser line;
    line.setApplicationDescription(QStringLiteral("Looks through a movie."));
    line.addHelpOption();
    line.addPositionalArgument(QStringLiteral("FILE"), QStringLiteral("the movie"));
    line.addPositionalArgument(QStringLiteral("SECONDS"), QStringLiteral("where to begin"),
                               QStringLiteral("[SECONDS]"));
    const QCommandLineOption screenshot(QStringLiteral("screenshot"),
                                        QStringLiteral("Writes what the screen shows, and ends."),
                                        QStringLiteral("PNG"));
    line.addOption(screenshot);
    line.process(app);
    const QStringList words = line.positionalArguments();
    bool is_number = true;
    const double seconds = words.size() == 2 ? words[1].toDouble(&is_number) : 0;
    if (words.isEmpty() || words.size() > 2 || !is_number || !(seconds >= 0 && seconds < 1e9)) {
        return complain(QStringLiteral("usage: viewer FILE [SECONDS] [--screenshot PNG]"));
    }

    // Playing backwards decodes a run of pictures forwards and needs them all.
    mox::Data::instance()->set("dec.max_vf", mox::Value::integer(kKeptPictures));
    Window window;
    const bool is_open = window.open(words[0]);
    if (is_open) {
        window.player().seek(static_cast<qint64>(seconds * 1e6));
    } else {
        (void)complain(window.error());
    }
    window.show();
    const int status = line.isSet(screenshot) ? take_screenshot(window, line.value(screenshot))
                                              : QApplication::exec();
    return is_open ? status : 1;
}
