#ifndef BACKUPFRAME_OWNEDLIST_H
#define BACKUPFRAME_OWNEDLIST_H

#include <QBuffer>
#include <QByteArray>
#include <QDataStream>
#include <QList>
#include <QtEndian>

// Internal: list plumbing shared by the list payloads (owned pointer lists, one nested byte array).
namespace OwnedList {

// Writes the items back to back into one byte array, without a count; an empty list is the
// null array. The inner stream keeps QDataStream's default version on purpose.
// On a seekable device the items go straight behind a length field patched afterwards:
// the same bytes as streaming a finished array, without building and copying one.
template <typename Item, typename WriteItem>
void WriteNested(QDataStream& out, const QList<Item>& list, WriteItem writeItem)
{
    QIODevice* device = out.device();
    if (list.isEmpty() || !device || device->isSequential() || out.status() != QDataStream::Ok) {
        QByteArray bytes;
        if (!list.isEmpty()) {
            QDataStream inner(&bytes, QIODevice::WriteOnly);
            for (const Item& item : list)
                writeItem(inner, item);
        }
        out << bytes;
        return;
    }
    const qint64 start = device->pos();
    out << quint32(0);
    QDataStream inner(device);
    for (const Item& item : list)
        writeItem(inner, item);
    const qint64 end = device->pos();
    const qint64 written = end - start - qint64(sizeof(quint32));
    device->seek(start);
    out << (written == 0 ? quint32(0xFFFFFFFFu) : quint32(written));   // nothing written: the null array
    device->seek(end);
}

// The nested array at the read position of a big-endian stream over a buffer, unread, as a
// view into that buffer; the stream moves past it. Null when the stream is not such or
// holds no complete non-null array there: the caller then reads it the ordinary way.
inline QByteArray NestedView(QDataStream& in)
{
    auto* buffer = qobject_cast<QBuffer*>(in.device());
    if (!buffer || in.status() != QDataStream::Ok || in.byteOrder() != QDataStream::BigEndian)
        return QByteArray();
    const QByteArray& all = buffer->data();
    const qint64 at = buffer->pos();
    if (all.size() - at < qint64(sizeof(quint32)))
        return QByteArray();
    const quint32 length = qFromBigEndian<quint32>(all.constData() + at);
    if (length == 0xFFFFFFFFu || length == 0 || all.size() - at - qint64(sizeof(quint32)) < qint64(length))
        return QByteArray();
    buffer->seek(at + sizeof(quint32) + length);
    return QByteArray::fromRawData(all.constData() + at + sizeof(quint32), int(length));
}

// Reads one byte array and calls readItem until its inner stream is at the end.
template <typename ReadItem>
void ReadNested(QDataStream& in, ReadItem readItem)
{
    QByteArray bytes = NestedView(in);
    if (bytes.isNull())
        in >> bytes;
    if (bytes.size() <= 0)
        return;
    QDataStream inner(&bytes, QIODevice::ReadOnly);
    while (!inner.atEnd())
        readItem(inner);
}

template <typename T>
void Clean(QList<T*>& list)
{
    qDeleteAll(list);
    list.clear();
}

// Appends a deep copy of every element; a null entry copies as a null entry.
template <typename T>
void Copy(QList<T*>& into, const QList<T*>& from)
{
    for (const T* source : from)
        into.append(source != nullptr ? new T(*source) : nullptr);
}

// Null entries are skipped.
template <typename T>
void Write(QDataStream& out, const QList<T*>& list)
{
    WriteNested(out, list, [](QDataStream& inner, T* item) {
        if (item != nullptr)
            item->Write(inner);
    });
}

// Appends the decoded elements to those already held.
template <typename T>
void Read(QDataStream& in, QList<T*>& list)
{
    ReadNested(in, [&list](QDataStream& inner) {
        T* item = new T();
        item->Read(inner);
        list.append(item);
    });
}

} // namespace OwnedList

#endif
