#include "picture_view.h"

#include <QPainter>
#include <QTransform>
#include <cmath>
#include <utility>

namespace {

/// Returns an image on the record's own pixels, which it keeps for as long as it needs them.
QImage image_of(std::shared_ptr<ff::VFrameCtx> picture) {
    const ff::VFrameCtx& p = *picture;
    auto* const holder = new std::shared_ptr<ff::VFrameCtx>(std::move(picture));
    return {p.data[0],
            p.width,
            p.height,
            p.linesize[0],
            QImage::Format_RGBA8888,
            [](void* kept) { delete static_cast<std::shared_ptr<ff::VFrameCtx>*>(kept); },
            holder};
}

}  // namespace

QSizeF shown_size(const ff::StreamCtx& stream) {
    QSizeF size(stream.width, stream.height);
    const ff::Rational pixel = stream.sample_aspect_ratio;
    if (pixel.num > 0 && pixel.den > 0) {
        size.rwidth() *= static_cast<double>(pixel.num) / static_cast<double>(pixel.den);
    }
    return std::fmod(std::abs(stream.rotation), 180) == 90 ? size.transposed() : size;
}

PictureView::PictureView(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_OpaquePaintEvent);  // paintEvent() fills all of it
    setMinimumSize(320, 180);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void PictureView::show_picture(std::shared_ptr<ff::VFrameCtx> picture,
                               const ff::StreamCtx& stream) {
    m_image = image_of(std::move(picture));
    if (stream.rotation != 0) {
        m_image = m_image.transformed(QTransform().rotate(stream.rotation));
    }
    m_shape = shown_size(stream);
    update();
}

void PictureView::show_text(const QString& text) {
    m_image = {};
    m_text = text;
    update();
}

QRect PictureView::picture_rect() const {
    QRect place({}, m_shape.scaled(size(), Qt::KeepAspectRatio).toSize());
    place.moveCenter(rect().center());
    return place;
}

QSize PictureView::sizeHint() const {
    return m_shape.isEmpty() ? QSize(640, 360) : m_shape.toSize();
}

void PictureView::paintEvent(QPaintEvent* /*event*/) {
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    if (has_picture()) {
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.drawImage(picture_rect(), m_image);
    } else {
        painter.setPen(Qt::lightGray);
        painter.drawText(rect().adjusted(24, 24, -24, -24), Qt::AlignCenter | Qt::TextWordWrap,
                         m_text);
    }
}
