#include "level_meter.h"
#include "picture_view.h"
#include "tests/support/media.h"
#include "tests/viewer/virtual_screen.h"
#include "window.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QProcess>
#include <QScreen>
#include <QTemporaryDir>
#include <QTest>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kRate = 30;
constexpr int kSeconds = 4;
constexpr int kPictures = kRate * kSeconds;
constexpr int kLongEnough = 60000;  // milliseconds after which what has not come never comes

/// 640x360, every picture another; B pictures, one key picture at the start. The sound is one value
/// at a time: half of full scale, from 1 s on a tenth of that, from 2 s on silence.
std::string viewer_clip() {
    return fw_test::make_clip(
        "viewer.mov",
        "-f lavfi -i testsrc2=size=640x360:rate=30:duration=4 "
        "-f lavfi -i 'aevalsrc=if(lt(t\\,1)\\,0.5\\,if(lt(t\\,2)\\,0.05\\,0)):s=48000:d=4' "
        "-c:v libx264 -pix_fmt yuv420p -g 250 -c:a pcm_s16le");
}

/// What the library itself gives for these times.
class Pictures {
public:
    explicit Pictures(const std::string& path) {
        const ff::MovieCtx* const movie = ff::FFDecoder::probe(path.c_str());
        EXPECT_TRUE(m_decoder.open(ff::first_stream(movie, ff::StreamType::Video)));
    }

    QImage at(const ff::Rational& time) {
        ff::RequireVideoFrame request;
        request.time = time;
        const std::shared_ptr<ff::VFrameCtx> p = m_decoder.getVideoFrame(request);
        if (p == nullptr) {
            return {};
        }
        return QImage(p->data[0], p->width, p->height, p->linesize[0], QImage::Format_RGBA8888)
            .convertToFormat(QImage::Format_RGB32);
    }

    QImage number(int n) { return at({n, kRate}); }

private:
    ff::FFDecoder m_decoder;
};

/// What the screen shows in this area.
QImage screen(const QRect& area) {
    return QGuiApplication::primaryScreen()
        ->grabWindow(0, area.x(), area.y(), area.width(), area.height())
        .toImage()
        .convertToFormat(QImage::Format_RGB32);
}

class ViewerTest : public testing::Test {
protected:
    void SetUp() override {
        if (qApp == nullptr) {
            GTEST_SKIP() << "Xvfb is not installed, or does not start";
        }
        m_window = std::make_unique<Window>();
    }

    void open(const std::string& path) {
        ASSERT_TRUE(m_window->open(QString::fromStdString(path)));
        m_window->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(m_window.get(), kLongEnough));
    }

    QRect area_of(const QWidget& widget, const QRect& part) const {
        return {widget.mapToGlobal(part.topLeft()), part.size()};
    }

    QImage picture_on_screen() const {
        return screen(area_of(m_window->view(), m_window->view().picture_rect()));
    }

    /// Whether the screen shows this picture, pixel by pixel, when all has been answered.
    bool comes_to_show(const QImage& expected) {
        return !expected.isNull() && QTest::qWaitFor(
                                         [&] {
                                             return m_window->player().is_settled() &&
                                                    picture_on_screen() == expected;
                                         },
                                         kLongEnough);
    }

    void press(Qt::Key key) { QTest::keyClick(m_window.get(), key); }

    QPoint place_on_bar(int ms) {
        const QSlider& bar = m_window->controls().bar();
        return {QStyle::sliderPositionFromValue(bar.minimum(), bar.maximum(), ms, bar.width()),
                bar.height() / 2};
    }

    bool ends_playing() {
        return QTest::qWaitFor([&] { return !m_window->player().is_playing(); }, kLongEnough);
    }

    std::unique_ptr<Window> m_window;  // made when there is a screen
};

}  // namespace

TEST_F(ViewerTest, ShowsTheFirstPictureOfAFilePixelByPixel) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    EXPECT_NE(pictures.number(0), pictures.number(1));
    EXPECT_TRUE(comes_to_show(pictures.number(0)));
    EXPECT_EQ(m_window->view().picture_rect().size(), QSize(640, 360));
    EXPECT_EQ(m_window->controls().time_text(), "0:00:00.000 / 0:00:04.000");
}

TEST_F(ViewerTest, ShowsThePictureOfTheTimeThatIsAskedFor) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    m_window->player().seek(2500000);
    EXPECT_TRUE(comes_to_show(pictures.number(75)));
    EXPECT_EQ(m_window->controls().bar().value(), 2500);
    EXPECT_EQ(m_window->controls().time_text(), "0:00:02.500 / 0:00:04.000");
}

TEST_F(ViewerTest, FollowsTheBarWhileItIsDragged) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    ASSERT_TRUE(comes_to_show(pictures.number(0)));
    QSlider& bar = m_window->controls().bar();
    QTest::mousePress(&bar, Qt::LeftButton, {}, place_on_bar(0));
    for (int ms = 0; ms <= 3000; ms += 10) {  // far faster than pictures can be decoded
        QTest::mouseMove(&bar, place_on_bar(ms), 0);
    }
    QTest::mouseRelease(&bar, Qt::LeftButton, {}, place_on_bar(3000));
    EXPECT_GT(bar.value(), 2800);
    EXPECT_LT(bar.value(), 3200);
    EXPECT_TRUE(comes_to_show(pictures.at({bar.value(), 1000})));
}

TEST_F(ViewerTest, GoesAtOnceToWhereTheBarIsClicked) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    QTest::mouseClick(&m_window->controls().bar(), Qt::LeftButton, {}, place_on_bar(3000));
    EXPECT_GT(m_window->controls().bar().value(), 2800);
    EXPECT_LT(m_window->controls().bar().value(), 3200);
    EXPECT_TRUE(comes_to_show(pictures.at({m_window->controls().bar().value(), 1000})));
}

TEST_F(ViewerTest, StepsByOnePictureWithTheArrowKeys) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    m_window->player().seek(1000000);
    ASSERT_TRUE(comes_to_show(pictures.number(30)));
    for (const int number : {31, 32, 33}) {
        press(Qt::Key_Right);
        EXPECT_TRUE(comes_to_show(pictures.number(number))) << number;
    }
    for (const int number : {32, 31, 30, 29}) {
        press(Qt::Key_Left);
        EXPECT_TRUE(comes_to_show(pictures.number(number))) << number;
    }
}

TEST_F(ViewerTest, StepsThroughEveryPictureOfAFileOfVariableRate) {
    const std::string path = fw_test::clip_variable_rate();
    const std::vector<fw_test::ReferenceFrame> frames = fw_test::reference_frames(path, 0);
    ASSERT_GT(frames.size(), 10U);
    ASSERT_NO_FATAL_FAILURE(open(path));
    Pictures pictures(path);
    press(Qt::Key_End);
    for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame) {
        const std::int64_t ms = frame->pts - frames.front().pts;  // ticks of Matroska
        ASSERT_TRUE(comes_to_show(pictures.at({ms, 1000}))) << ms;
        press(Qt::Key_Left);
    }
    for (std::int64_t last = -1; m_window->player().position() < m_window->player().duration();) {
        EXPECT_GT(m_window->player().position(), last);
        last = m_window->player().position();
        press(Qt::Key_Right);
        ASSERT_TRUE(QTest::qWaitFor([&] { return m_window->player().is_settled(); }, kLongEnough));
    }
}

TEST_F(ViewerTest, JumpsToBothEnds) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    press(Qt::Key_End);
    EXPECT_TRUE(comes_to_show(pictures.number(kPictures - 1)));
    press(Qt::Key_Home);
    EXPECT_TRUE(comes_to_show(pictures.number(0)));
}

TEST_F(ViewerTest, PlaysUntilTheEnd) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    m_window->player().seek(3500000);
    press(Qt::Key_Space);
    EXPECT_TRUE(m_window->player().is_playing());
    EXPECT_EQ(m_window->controls().play_button().text(), "Pause");
    EXPECT_TRUE(ends_playing());
    EXPECT_EQ(m_window->controls().play_button().text(), "Play");
    EXPECT_TRUE(comes_to_show(pictures.number(kPictures - 1)));
}

TEST_F(ViewerTest, PausesWhereItIs) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    QTest::mouseClick(&m_window->controls().play_button(), Qt::LeftButton);
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_window->player().position() > 0; }, kLongEnough));
    QTest::mouseClick(&m_window->controls().play_button(), Qt::LeftButton);
    EXPECT_FALSE(m_window->player().is_playing());
    const std::int64_t position = m_window->player().position();
    EXPECT_TRUE(comes_to_show(pictures.at({position, 1000000})));
    EXPECT_EQ(m_window->player().position(), position);
}

TEST_F(ViewerTest, ShowsTheSamePictureOfATimeInBothDirections) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    m_window->player().seek(1100000);
    ASSERT_TRUE(comes_to_show(pictures.number(33)));
    QTest::mouseClick(&m_window->controls().reverse_button(), Qt::LeftButton);
    EXPECT_TRUE(m_window->player().is_reverse());
    EXPECT_TRUE(m_window->controls().reverse_button().isChecked());
    EXPECT_TRUE(comes_to_show(pictures.number(33)));
    m_window->player().seek(3000000);
    EXPECT_TRUE(comes_to_show(pictures.number(90)));
    press(Qt::Key_R);
    EXPECT_FALSE(m_window->player().is_reverse());
    EXPECT_TRUE(comes_to_show(pictures.number(90)));
}

TEST_F(ViewerTest, PlaysBackwardsFromTheEndToTheStart) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    press(Qt::Key_R);
    press(Qt::Key_Space);  // at the start, where nothing is left to play backwards: from the end
    EXPECT_GT(m_window->player().position(), 0);
    std::int64_t last = m_window->player().duration();
    EXPECT_TRUE(QTest::qWaitFor(
        [&] {
            EXPECT_LE(m_window->player().position(), last);
            last = m_window->player().position();
            return !m_window->player().is_playing();
        },
        kLongEnough));
    EXPECT_EQ(last, 0);
    EXPECT_TRUE(comes_to_show(pictures.number(0)));
}

TEST_F(ViewerTest, TurnsInTheMiddleOfPlaying) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    m_window->player().seek(500000);
    press(Qt::Key_Space);
    press(Qt::Key_R);
    EXPECT_TRUE(m_window->player().is_playing());
    EXPECT_TRUE(ends_playing());
    EXPECT_EQ(m_window->player().position(), 0);
    EXPECT_TRUE(comes_to_show(pictures.number(0)));
}

TEST_F(ViewerTest, MeasuresTheSoundAroundThePlayhead) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    const LevelMeter& meter = m_window->controls().meter();

    struct Row {
        std::int64_t position;
        double peak;
        double filled;  // part of the bar: 1 - dB / -60
    };

    for (const Row& row : {Row{500000, 0.5, 0.900}, Row{1500000, 0.05, 0.566}, Row{3000000, 0, 0},
                           Row{0, 0.5, 0.900}}) {
        m_window->player().seek(row.position);
        // A sample of 16 bits is at most half of 1/32768 away from what the clip was made of.
        EXPECT_TRUE(QTest::qWaitFor(
            [&] {
                return m_window->player().is_settled() &&
                       std::abs(meter.level() - row.peak) <= 0.5 / 32768 + 1e-6;
            },
            kLongEnough))
            << row.position << ": " << meter.level();
        const auto is_filled = [&] {
            const QImage bar = screen(area_of(meter, meter.rect()));
            int columns = 0;
            while (columns < bar.width() && bar.pixelColor(columns, 2) != QColor(24, 24, 24)) {
                columns++;
            }
            return std::abs(columns - row.filled * bar.width()) <= 1;  // a column may be in part
        };
        EXPECT_TRUE(QTest::qWaitFor(is_filled, kLongEnough)) << row.position;
    }
}

TEST_F(ViewerTest, KeepsTheShapeOfThePictureInAnyWindow) {
    ASSERT_NO_FATAL_FAILURE(open(viewer_clip()));
    Pictures pictures(viewer_clip());
    m_window->player().seek(2000000);
    ASSERT_TRUE(comes_to_show(pictures.number(60)));
    m_window->resize(1280, 720);
    ASSERT_TRUE(QTest::qWaitFor([&] { return m_window->width() == 1280; }, kLongEnough));
    const QRect place = m_window->view().picture_rect();
    EXPECT_EQ(place.height(), m_window->view().height());
    EXPECT_LE(std::abs(place.width() * 9 - place.height() * 16), 16);
    const QRect beside(0, 0, place.left(), m_window->view().height());
    QImage black(beside.size(), QImage::Format_RGB32);
    black.fill(Qt::black);
    EXPECT_TRUE(QTest::qWaitFor([&] { return screen(area_of(m_window->view(), beside)) == black; },
                                kLongEnough));

    // Scaled by another hand it cannot be the same to the last bit; but of all pictures of the clip
    // it must be nearest to this one.
    const QImage shown = picture_on_screen();
    std::int64_t least = INT64_MAX;
    int nearest = -1;
    for (int n = 0; n < kPictures; n++) {
        const QImage picture = pictures.number(n).scaled(shown.size(), Qt::IgnoreAspectRatio,
                                                         Qt::SmoothTransformation);
        std::int64_t distance = 0;
        for (int y = 0; y < shown.height(); y += 3) {
            for (int x = 0; x < shown.width(); x += 3) {
                distance += std::abs(qGreen(picture.pixel(x, y)) - qGreen(shown.pixel(x, y)));
            }
        }
        if (distance < least) {
            least = distance;
            nearest = n;
        }
    }
    EXPECT_EQ(nearest, 60);
}

TEST_F(ViewerTest, TurnsThePictureAsTheStreamAsksFor) {
    const std::string upright = fw_test::make_clip(
        "viewer-upright.mp4",
        "-f lavfi -i testsrc2=size=480x320:rate=30:duration=1 -c:v libx264 -pix_fmt yuv420p");
    const std::string path = fw_test::make_clip(  // the tag counts the other way round
        "viewer-turned.mp4", "-i " + upright + " -c copy -metadata:s:v:0 rotate=270");
    ASSERT_NO_FATAL_FAILURE(open(path));
    const QImage stored = Pictures(path).number(0);
    QImage turned(stored.height(), stored.width(), QImage::Format_RGB32);
    ASSERT_EQ(m_window->player().stream()->rotation, 90);
    for (int y = 0; y < stored.height(); y++) {
        for (int x = 0; x < stored.width(); x++) {  // clockwise: the top row becomes the right one
            turned.setPixel(stored.height() - 1 - y, x, stored.pixel(x, y));
        }
    }
    EXPECT_TRUE(comes_to_show(turned));
}

TEST_F(ViewerTest, SaysWhatItCannotShow) {
    m_window->show();
    EXPECT_FALSE(m_window->open("no such file.mp4"));
    EXPECT_EQ(m_window->error(), "Cannot open no such file.mp4");
    EXPECT_FALSE(m_window->view().has_picture());
    press(Qt::Key_Space);
    press(Qt::Key_Right);
    EXPECT_FALSE(m_window->player().is_playing());
}

TEST_F(ViewerTest, CanBeClosedAtAnyMoment) {
    for (int delay = 0; delay < 20; delay++) {
        Window window;
        ASSERT_TRUE(window.open(QString::fromStdString(viewer_clip())));
        window.show();
        window.player().set_playing(true);
        QTest::qWait(delay);
        for (int ms = 0; ms < 4000; ms += 400) {
            window.player().seek(qint64{ms} * 1000);
        }
    }
}

namespace {

struct Ended {
    int status;
    std::string errors;
};

Ended run_viewer(const QStringList& arguments) {
    QProcess viewer;
    viewer.start(FRAMEWELL_VIEWER_PATH, arguments);
    EXPECT_TRUE(viewer.waitForFinished(kLongEnough));
    return {viewer.exitStatus() == QProcess::NormalExit ? viewer.exitCode() : -1,
            viewer.readAllStandardError().toStdString()};
}

}  // namespace

TEST_F(ViewerTest, ProgramWritesAPictureOfTheScreen) {
    const QTemporaryDir folder;
    const QString file = folder.filePath("shot.png");
    EXPECT_EQ(
        run_viewer({QString::fromStdString(viewer_clip()), "1.5", "--screenshot", file}).status, 0);
    const QImage shot = QImage(file).convertToFormat(QImage::Format_RGB32);
    EXPECT_EQ(shot.copy(0, 0, 640, 360), Pictures(viewer_clip()).number(45));
    EXPECT_GT(shot.height(), 360);  // the controls are below
}

TEST_F(ViewerTest, ProgramEndsWithStatusOneWhereThereIsNothingToShow) {
    const QTemporaryDir folder;
    const QString shot = folder.filePath("shot.png");
    const QString sound = QString::fromStdString(fw_test::clip_pcm());

    struct Row {
        QStringList arguments;
        std::string error;
    };

    for (const Row& row :
         {Row{{"none.mp4", "--screenshot", shot}, "viewer: Cannot open none.mp4\n"},
          Row{{sound, "--screenshot", shot},
              "viewer: There is no video in " + sound.toStdString() + "\n"},
          Row{{QString::fromStdString(viewer_clip()), "--screenshot", folder.filePath("no/a.png")},
              "viewer: cannot write " + folder.filePath("no/a.png").toStdString() + "\n"},
          Row{{"a.mp4", "soon"}, "viewer: usage: viewer FILE [SECONDS] [--screenshot PNG]\n"},
          Row{{}, "viewer: usage: viewer FILE [SECONDS] [--screenshot PNG]\n"}}) {
        const Ended ended = run_viewer(row.arguments);
        EXPECT_EQ(ended.status, 1) << row.error;
        EXPECT_NE(ended.errors.find(row.error), std::string::npos) << ended.errors;
    }
}

/// The screen and the application, which all tests of this program share.
class ScreenEnvironment : public testing::Environment {
public:
    void SetUp() override {
        m_screen = std::make_unique<fw_test::VirtualScreen>();
        if (m_screen->is_there()) {
            m_app = std::make_unique<QApplication>(m_argc, m_argv);
            QApplication::setStyle("Fusion");
        }
    }

    void TearDown() override {
        m_app.reset();
        m_screen.reset();
    }

private:
    char m_name[13] = "viewer_tests";
    char* m_argv[2] = {m_name, nullptr};
    int m_argc = 1;
    std::unique_ptr<fw_test::VirtualScreen> m_screen;
    std::unique_ptr<QApplication> m_app;
};

const testing::Environment* const g_screen =
    testing::AddGlobalTestEnvironment(new ScreenEnvironment);  // GoogleTest deletes it
