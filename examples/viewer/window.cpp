#include "window.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QScreen>
#include <QVBoxLayout>

Window::Window() {
    auto* const rows = new QVBoxLayout(this);
    rows->setContentsMargins(0, 0, 0, 0);
    rows->setSpacing(0);
    rows->addWidget(&m_view, 1);
    rows->addWidget(&m_controls);
}

bool Window::open(const QString& path) {
    setWindowTitle(QFileInfo(path).fileName());
    m_error = m_player.open(path);
    m_view.show_text(m_error);
    m_controls.setEnabled(m_error.isEmpty());
    if (!m_error.isEmpty()) {
        return false;
    }
    // Each pixel of the picture is one of the screen, if all fit.
    const QSize room = QGuiApplication::primaryScreen()->availableSize() * 4 / 5;
    const QSizeF size = shown_size(*m_player.stream());
    resize(size.toSize().boundedTo(size.scaled(room, Qt::KeepAspectRatio).toSize()) +
           QSize(0, m_controls.sizeHint().height()));
    return true;
}

void Window::show_picture(const std::shared_ptr<ff::VFrameCtx>& picture) {
    if (picture != nullptr) {
        m_view.show_picture(picture, *m_player.stream());
    } else {
        m_view.show_text(QStringLiteral("There is no picture here"));
    }
}

void Window::show_level(double peak) {
    m_controls.meter().show_level(peak);
}

void Window::show_state() {
    m_controls.show_state();
}

void Window::keyPressEvent(QKeyEvent* event) {
    if (event->key() == Qt::Key_Escape) {
        close();
    } else if (!m_error.isEmpty() || !steer(event->key())) {
        QWidget::keyPressEvent(event);
    }
}

bool Window::steer(int key) {
    if (key == Qt::Key_Space) {
        m_player.set_playing(!m_player.is_playing());
    } else if (key == Qt::Key_R) {
        m_player.set_reverse(!m_player.is_reverse());
    } else if (key == Qt::Key_Left || key == Qt::Key_Right) {
        m_player.step(key == Qt::Key_Right ? 1 : -1);
    } else if (key == Qt::Key_Home || key == Qt::Key_End) {
        m_player.seek(key == Qt::Key_Home ? 0 : m_player.duration());
    } else {
        return false;
    }
    return true;
}
