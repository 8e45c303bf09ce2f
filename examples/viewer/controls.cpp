#include "controls.h"

#include <QFontDatabase>
#include <QHBoxLayout>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>
#include <limits>

namespace {

/// Writes microseconds as "0:01:02.345".
QString clock_text(qint64 us) {
    const qint64 ms = us / 1000;
    return QString::asprintf("%lld:%02lld:%02lld.%03lld", ms / 3600000, ms / 60000 % 60,
                             ms / 1000 % 60, ms % 1000);
}

/// Returns microseconds in steps of the bar.
int bar_steps(qint64 us) {
    return static_cast<int>(std::min<qint64>(us / 1000, std::numeric_limits<int>::max()));
}

}  // namespace

int Controls::BarStyle::styleHint(StyleHint hint, const QStyleOption* option, const QWidget* widget,
                                  QStyleHintReturn* data) const {
    return hint == SH_Slider_AbsoluteSetButtons
               ? static_cast<int>(Qt::LeftButton)
               : QProxyStyle::styleHint(hint, option, widget, data);
}

Controls::Controls(Player& player, QWidget* parent) : QWidget(parent), m_player(player) {
    lay_out();
    QObject::connect(&m_bar, &QSlider::valueChanged, this,
                     [this](int ms) { m_player.seek(qint64{ms} * 1000); });
    QObject::connect(&m_play, &QToolButton::clicked, this,
                     [this] { m_player.set_playing(!m_player.is_playing()); });
    QObject::connect(&m_reverse, &QToolButton::clicked, this,
                     [this] { m_player.set_reverse(!m_player.is_reverse()); });
    show_state();
}

void Controls::lay_out() {
    m_bar.setStyle(&m_bar_style);
    m_play.setMinimumWidth(64);
    m_play.setToolTip(QStringLiteral("Space"));
    m_reverse.setText(QStringLiteral("Reverse"));
    m_reverse.setToolTip(QStringLiteral("R"));
    m_reverse.setCheckable(true);
    m_time.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    for (QWidget* const control : {static_cast<QWidget*>(&m_bar), static_cast<QWidget*>(&m_play),
                                   static_cast<QWidget*>(&m_reverse)}) {
        control->setFocusPolicy(Qt::NoFocus);  // all keys are the window's
    }
    auto* const row = new QHBoxLayout;
    row->addWidget(&m_play);
    row->addWidget(&m_reverse);
    row->addStretch();
    row->addWidget(&m_time);
    row->addStretch();
    row->addWidget(&m_meter);
    auto* const rows = new QVBoxLayout(this);
    rows->setContentsMargins(10, 6, 10, 10);
    rows->addWidget(&m_bar);
    rows->addLayout(row);
}

void Controls::show_state() {
    const QSignalBlocker quiet(m_bar);  // the bar follows the playhead
    m_bar.setMaximum(bar_steps(m_player.duration()));
    m_bar.setValue(bar_steps(m_player.position()));
    m_play.setText(m_player.is_playing() ? QStringLiteral("Pause") : QStringLiteral("Play"));
    m_reverse.setEnabled(m_player.can_reverse());
    m_reverse.setChecked(m_player.is_reverse());
    m_time.setText(clock_text(m_player.position()) + " / " + clock_text(m_player.duration()));
}
