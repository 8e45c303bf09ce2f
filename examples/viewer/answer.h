#pragma once

#include <QMetaObject>
#include <QObject>
#include <functional>
#include <memory>
#include <utility>

/// Carries the answer to one background request from the decoder's thread to the window's.
///
/// A decoder calls back only with a result, but it destroys what a callback carries in any case. So
/// the handler runs exactly once for each request: with the result, or with null where there is
/// none, because nothing is there, a newer request took its place or the decoder was closed.
template <class Record>
class Answer {
public:
    using Handler = std::function<void(std::shared_ptr<Record>)>;

    Answer(QObject* receiver, Handler handler)
        : m_receiver(receiver), m_handler(std::move(handler)) {}

    Answer(const Answer&) = delete;
    Answer& operator=(const Answer&) = delete;

    ~Answer() {
        QMetaObject::invokeMethod(
            m_receiver,
            [handler = std::move(m_handler), record = std::move(m_record)] { handler(record); },
            Qt::QueuedConnection);
    }

    void take(std::shared_ptr<Record> record) { m_record = std::move(record); }

private:
    QObject* const m_receiver;
    Handler m_handler;
    std::shared_ptr<Record> m_record;
};

/// Returns a callback for a decoder, by which `handler` runs on the thread of `receiver`. The
/// receiver closes the decoder before it goes.
template <class Record>
std::function<void(std::shared_ptr<Record>)> posted(QObject* receiver,
                                                    typename Answer<Record>::Handler handler) {
    const auto answer = std::make_shared<Answer<Record>>(receiver, std::move(handler));
    return [answer](std::shared_ptr<Record> record) { answer->take(std::move(record)); };
}
