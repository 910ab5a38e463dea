#ifndef BACKUPFRAME_OWNEDLIST_H
#define BACKUPFRAME_OWNEDLIST_H

#include <QByteArray>
#include <QDataStream>
#include <QList>

// Internal: list plumbing shared by the list payloads (owned pointer lists, one nested byte array).
namespace OwnedList {

// Writes the items back to back into one byte array, without a count; an empty list is the
// null array. The inner stream keeps QDataStream's default version on purpose.
template <typename Item, typename WriteItem>
void WriteNested(QDataStream& out, const QList<Item>& list, WriteItem writeItem)
{
    QByteArray bytes;
    if (!list.isEmpty()) {
        QDataStream inner(&bytes, QIODevice::WriteOnly);
        for (const Item& item : list)
            writeItem(inner, item);
    }
    out << bytes;
}

// Reads one byte array and calls readItem until its inner stream is at the end.
template <typename ReadItem>
void ReadNested(QDataStream& in, ReadItem readItem)
{
    QByteArray bytes;
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
