#ifndef BACKUPFRAME_REQUESTMINIZIPDATA_H
#define BACKUPFRAME_REQUESTMINIZIPDATA_H

#include "backupframe_global.h"
#include "command/commandobj.h"

#include <QString>

// Payload of "Minizip": where to save the archive. The path defaults to null.
class BACKUPFRAME_EXPORT RequestMinizipData : public CommandObj
{
public:
    RequestMinizipData();
    RequestMinizipData(const RequestMinizipData& other);
    RequestMinizipData& operator=(const RequestMinizipData& other);
    ~RequestMinizipData() override;

    void Read(QDataStream& in) override;
    void Write(QDataStream& out) override;

    QString getSavePath() const;
    void setSavePath(const QString& savePath);

private:
    void formother(const RequestMinizipData& other);

    QString m_savePath;
};

#endif
