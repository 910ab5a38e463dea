// The copy operation on real folders: a mirror byte for byte with times and permissions, a
// second run that writes only what changed, excludes, a cancel that leaves nothing half
// written, and every failure with a reason and a solution of its own: a full or read-only
// destination is a small tmpfs mounted for the row, and runs obey file modes even as root.
#include "copyjob.h"
#include "operationregistry.h"
#include "schedulerservice.h"
#include "zipjob.h"

#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <functional>

#include <linux/capability.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

using Hook = std::function<void(RunJob* job, quint64 done)>;
constexpr QFileDevice::Permissions kUserFlags = QFileDevice::ReadUser | QFileDevice::WriteUser | QFileDevice::ExeUser;

struct Result {
    quint64 outcome = ~quint64(0);
    QString reason;
    QString solution;
    QList<QPair<quint64, quint64>> progress;
    int copied = -1;
    QString archive;   // written by a zip run
};

QByteArray parameter(const QString& source, const QString& destination, const QString& exclude = QString())
{
    return QStringLiteral("source=%1\n destination = %2 ;exclude=%3").arg(source, destination, exclude).toUtf8();
}

void writeFile(const QString& path, const QByteArray& content, const QDateTime& time,
               QFileDevice::Permissions permissions = QFileDevice::ReadOwner | QFileDevice::WriteOwner)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly) && file.write(content) == content.size(), qPrintable(path));
    QVERIFY(file.setFileTime(time, QFileDevice::FileModificationTime));
    QVERIFY(file.setPermissions(permissions));
}

// Twenty MiB and a bit that do not compress (a zip fills a small disk too), the same in every run.
QByteArray bigContent()
{
    QByteArray big(20 * 1024 * 1024 + 12345, Qt::Uninitialized);
    QRandomGenerator random(20211);
    for (char& byte : big)
        byte = static_cast<char>(random.generate());
    return big;
}

// A few dozen small files in two levels of folders, with assorted times and modes; a big one on request.
void makeTree(const QString& root, bool withBigFile)
{
    const QFileDevice::Permissions modes[] = {QFileDevice::ReadOwner | QFileDevice::WriteOwner,
                                              QFileDevice::ReadOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther,
                                              QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
                                                  | QFileDevice::ExeGroup};
    const QDateTime base(QDate(2021, 3, 4), QTime(5, 6, 7));
    for (int i = 0; i < 36; ++i)
        writeFile(QStringLiteral("%1/d%2/s%3/f%4.%5").arg(root).arg(i % 4).arg(i % 3).arg(i).arg(i % 5 ? "txt" : "tmp"),
                  QByteArray::number(i * 7919).repeated(i * 37 + 1), base.addSecs(i * 3601), modes[i % 3]);
    writeFile(root + QStringLiteral("/.hidden"), "dot", base);
    writeFile(root + QStringLiteral("/d1/cache/blob"), "cached", base);
    QDir().mkpath(root + QStringLiteral("/empty"));
    if (withBigFile)
        writeFile(root + QStringLiteral("/big.bin"), bigContent(), base.addDays(-1));
}

// Every file below root (hidden ones too), relative and sorted.
QStringList filesBelow(const QString& root)
{
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(root).relativeFilePath(it.next());
    files.sort();
    return files;
}

// Takes the rights to pass over file modes out of the effective set of this thread, and of the
// threads it starts meanwhile, so that root meets modes as the service's user would. They stay
// permitted and come back at the end.
class ModesApply
{
public:
    ModesApply()
    {
        m_lowered = syscall(SYS_capget, &m_header, m_saved) == 0;
        __user_cap_data_struct lowered[2] = {m_saved[0], m_saved[1]};
        lowered[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        m_lowered = m_lowered && syscall(SYS_capset, &m_header, lowered) == 0;
    }
    ~ModesApply()
    {
        if (m_lowered)
            syscall(SYS_capset, &m_header, m_saved);
    }

private:
    __user_cap_header_struct m_header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct m_saved[2]{};
    bool m_lowered = false;
};

// A 1 MiB tmpfs on a folder for the life of the object, read-only on request.
class SmallTmpfs
{
public:
    SmallTmpfs(const QString& path, bool readOnly)
        : m_path(QFile::encodeName(path))
    {
        m_mounted = QDir().mkpath(path)
                    && ::mount("tmpfs", m_path.constData(), "tmpfs", readOnly ? MS_RDONLY : 0, "size=1m") == 0;
    }
    ~SmallTmpfs()
    {
        if (m_mounted)
            ::umount2(m_path.constData(), MNT_DETACH);
    }
    bool Mounted() const { return m_mounted; }

private:
    QByteArray m_path;
    bool m_mounted = false;
};

} // namespace

class tst_Operations : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup() { m_mount.reset(); }
    void mirrorsTheTreeWithTimesAndPermissions();
    void aSecondRunCopiesOnlyWhatChanged_data();
    void aSecondRunCopiesOnlyWhatChanged();
    void excludesLeaveOutNamesPathsAndFolders_data();
    void excludesLeaveOutNamesPathsAndFolders();
    void runsThatDoNotSucceedSayWhyAndLeaveNoPartialFile_data();
    void runsThatDoNotSucceedSayWhyAndLeaveNoPartialFile();
    void parametersAreChecked_data();
    void parametersAreChecked();
    void aJobsOwnSolutionReachesTheJournal_data();
    void aJobsOwnSolutionReachesTheJournal();
    void zipWritesAnArchiveThatUnzipRestoresByteForByte();
    void zipRunsThatDoNotSucceedLeaveNoArchive_data();
    void zipRunsThatDoNotSucceedLeaveNoArchive();
    void zipKeepsOnlyThePlansNewestArchives();
    void restoreBringsBackTheTreeOrAPartOfIt_data();
    void restoreBringsBackTheTreeOrAPartOfIt();
    void restoreKeepsExistingFilesUnlessTold_data();
    void restoreKeepsExistingFilesUnlessTold();
    void restoresThatDoNotSucceedWriteNothing_data();
    void restoresThatDoNotSucceedWriteNothing();
    void verifyReportsWhatIsWrong_data();
    void verifyReportsWhatIsWrong();

private:
    Result Run(const QByteArray& parameter, const Hook& hook = Hook(), const QString& operation = "copy");
    QString Obstruct(const QString& destination, const QString& locked);
    QString Backup(const QString& kind, const QByteArray& more = QByteArray(), const Hook& hook = Hook(),
                   Result* result = nullptr);
    QString Source() const { return m_dir->filePath(QStringLiteral("source")); }
    QString Destination() const { return m_dir->filePath(QStringLiteral("destination")); }

    std::unique_ptr<SmallTmpfs> m_mount;    // gone before m_dir
    std::unique_ptr<QTemporaryDir> m_dir;   // holds source, destination and whatever a row needs beside them
    const OperationRegistry m_registry = OperationRegistry::WithBuiltIns();
};

void tst_Operations::init()
{
    m_dir.reset(new QTemporaryDir);
    QVERIFY(m_dir->isValid());
    QVERIFY(QDir().mkpath(Source()) && QDir().mkpath(Destination()));
}

Result tst_Operations::Run(const QByteArray& parameter, const Hook& hook, const QString& operation)
{
    TaskAttribute task;
    task.setTaskName(QStringLiteral("nightly"));
    task.setOperationRegisterName(operation);
    task.setOperationParameter(parameter);
    const ModesApply modesApply;
    std::unique_ptr<RunJob> job(m_registry.Create(task));
    Result result;
    bool finished = false;
    connect(job.get(), &RunJob::progress, this, [&](quint64 done, quint64 total) { result.progress << qMakePair(done, total); });
    connect(job.get(), &RunJob::finished, this, [&](quint64 outcome, const QString& reason, const QString& solution) {
        result.outcome = outcome;
        result.reason = reason;
        result.solution = solution;
        finished = true;
    });
    if (hook)
        connect(job.get(), &RunJob::progress, job.get(),
                [&](quint64 done) { hook(job.get(), done); }, Qt::DirectConnection);
    job->Start();
    if (!QTest::qWaitFor([&] { return finished; }, 60000))
        qWarning("the copy did not finish");
    job->Wait();
    if (const auto* copy = dynamic_cast<CopyJob*>(job.get()))
        result.copied = copy->CopiedFiles();
    if (const auto* zip = dynamic_cast<ZipJob*>(job.get()))
        result.archive = zip->ArchivePath();
    return result;
}

// Puts a row's obstacles in place: a full or read-only file system at the destination "full" or
// "readonly", and locked (relative to the temporary folder) made mode 0. Empty, or why it cannot.
QString tst_Operations::Obstruct(const QString& destination, const QString& locked)
{
    if (destination == "full" || destination == "readonly") {
        m_mount.reset(new SmallTmpfs(m_dir->filePath(destination), destination == "readonly"));
        if (!m_mount->Mounted())
            return QStringLiteral("Mounting a tmpfs needs root with CAP_SYS_ADMIN: %1").arg(qt_error_string(errno));
    }
    if (!locked.isEmpty())
        QFile::setPermissions(m_dir->filePath(locked), {});   // a failure shows as a run that succeeds
    return QString();
}

void tst_Operations::mirrorsTheTreeWithTimesAndPermissions()
{
    makeTree(Source(), true);
    const Result result = Run(parameter(Source(), Destination()));
    QCOMPARE(result.outcome, quint64(SchedulerProtocol::Succeeded));
    QCOMPARE(filesBelow(Destination()), filesBelow(Source()));
    QVERIFY(QFileInfo(Destination() + QStringLiteral("/empty")).isDir());
    quint64 bytes = 0;
    for (const QString& name : filesBelow(Source())) {
        QFile from(Source() + '/' + name), to(Destination() + '/' + name);
        QVERIFY(from.open(QIODevice::ReadOnly) && to.open(QIODevice::ReadOnly));
        QVERIFY2(from.readAll() == to.readAll(), qPrintable(name));
        const QFileInfo source(from), copy(to);
        QCOMPARE(copy.lastModified(), source.lastModified());
        QCOMPARE(copy.permissions() & ~kUserFlags, source.permissions() & ~kUserFlags);
        bytes += quint64(source.size());
    }
    QVERIFY(result.progress.size() > 2);
    for (int i = 1; i < result.progress.size(); ++i) {
        QVERIFY(result.progress[i].first >= result.progress[i - 1].first);
        QCOMPARE(result.progress[i].second, bytes);
    }
    QCOMPARE(result.progress.last(), qMakePair(bytes, bytes));
}

void tst_Operations::aSecondRunCopiesOnlyWhatChanged_data()
{
    QTest::addColumn<int>("change");   // 0 none, 1 a new modification time, 2 a byte more at the same time
    QTest::addColumn<int>("copied");

    QTest::newRow("an unchanged tree is written not at all") << 0 << 0;
    QTest::newRow("a file with a new modification time is copied again") << 1 << 1;
    QTest::newRow("a file of another size but the same time is copied again") << 2 << 1;
}

void tst_Operations::aSecondRunCopiesOnlyWhatChanged()
{
    QFETCH(int, change);
    QFETCH(int, copied);
    makeTree(Source(), false);
    QCOMPARE(Run(parameter(Source(), Destination())).copied, filesBelow(Source()).size());
    const QString changed = Source() + QStringLiteral("/d2/s2/f2.txt");
    QFile file(changed);
    const QDateTime time = QFileInfo(file).lastModified();
    QVERIFY(file.open(QIODevice::Append));
    if (change == 2)
        file.write("+");
    QVERIFY(file.setFileTime(time.addSecs(change == 1 ? 1 : 0), QFileDevice::FileModificationTime));
    file.close();
    const Result second = Run(parameter(Source(), Destination()));
    QCOMPARE(second.outcome, quint64(SchedulerProtocol::Succeeded));
    QCOMPARE(second.copied, copied);
    QCOMPARE(QFileInfo(Destination() + QStringLiteral("/d2/s2/f2.txt")).size(), QFileInfo(changed).size());
    QCOMPARE(second.progress.last().first, second.progress.last().second);
}

void tst_Operations::excludesLeaveOutNamesPathsAndFolders_data()
{
    QTest::addColumn<QString>("exclude");
    QTest::addColumn<QString>("leftOut");   // a regular expression on the relative paths that must be missing

    QTest::newRow("name patterns match in every folder") << "*.tmp, .hidden" << R"((\.tmp|^\.hidden)$)";
    QTest::newRow("a folder's name leaves out all it holds") << "cache" << "^d1/cache/";
    QTest::newRow("a relative path pattern leaves out the folders it names") << "d3/s?" << "^d3/";
    QTest::newRow("no pattern leaves out nothing") << "" << "^$";
}

void tst_Operations::excludesLeaveOutNamesPathsAndFolders()
{
    QFETCH(QString, exclude);
    QFETCH(QString, leftOut);
    makeTree(Source(), false);
    QCOMPARE(Run(parameter(Source(), Destination(), exclude)).outcome, quint64(SchedulerProtocol::Succeeded));
    const QStringList all = filesBelow(Source());
    const QStringList expected = all.filter(QRegularExpression(QStringLiteral("^(?!.*(%1))").arg(leftOut)));
    QVERIFY(expected.size() < all.size() || exclude.isEmpty());
    QCOMPARE(filesBelow(Destination()), expected);
}

void tst_Operations::runsThatDoNotSucceedSayWhyAndLeaveNoPartialFile_data()
{
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("destination");   // "full" and "readonly" are file systems of their own
    QTest::addColumn<QString>("locked");        // made mode 0
    QTest::addColumn<int>("change");   // on the big file's first progress: 0 none, 1 cancel, 2 shrink it, 3 delete the next file
    QTest::addColumn<quint64>("outcome");
    QTest::addColumn<QString>("reason");     // %1 the temporary folder, here and in the solution
    QTest::addColumn<QString>("solution");   // empty: the job has none of its own
    QTest::addColumn<QStringList>("copied");   // what the destination holds afterwards

    const quint64 failed = SchedulerProtocol::Failed;
    QTest::newRow("a cancel drops the file being written") << "source" << "destination" << "" << 1
        << quint64(SchedulerProtocol::Cancelled) << "cancelled" << "" << QStringList();
    QTest::newRow("a file that shrinks fails on its size") << "source" << "destination" << "" << 2 << failed
        << "%1/source/big.bin changed size" << "not in use" << QStringList();
    QTest::newRow("a file that vanishes fails by name") << "source" << "destination" << "" << 3 << failed
        << "%1/source/later/small vanished" << "run the plan again" << QStringList{"big.bin"};
    QTest::newRow("a missing source") << "missing" << "destination" << "" << 0 << failed
        << "source folder %1/missing does not exist" << "correct source=" << QStringList();
    QTest::newRow("a missing destination is not made") << "source" << "missing" << "" << 0 << failed
        << "destination folder %1/missing does not exist" << "create the folder" << QStringList();
    QTest::newRow("a destination that is a file") << "source" << "file" << "" << 0 << failed
        << "destination folder %1/file is not a folder" << "correct destination=" << QStringList();
    QTest::newRow("a file where a subfolder should be") << "source" << "blocked" << "" << 0 << failed
        << "folder %1/blocked/later could not be made: a file of that name stands in its place"
        << "Move or rename that file" << QStringList{"later"};
    QTest::newRow("a destination that fills up drops the file being written") << "source" << "full" << "" << 0
        << failed << "%1/full/big.bin could not be written: the destination is full (No space left on device)"
        << "Free space on the destination" << QStringList();
    QTest::newRow("a read-only destination") << "source" << "readonly" << "" << 0 << failed
        << "folder %1/readonly/later could not be made: the destination is on a read-only file system"
        << "Mount the destination's file system read-write" << QStringList();
    QTest::newRow("a destination folder the service may not write") << "source" << "destination" << "destination"
        << 0 << failed << "folder %1/destination/later could not be made: the service's user may not write in "
                          "%1/destination (Permission denied)"
        << "write permission on %1/destination" << QStringList();
    QTest::newRow("a source folder the service may not read") << "source" << "destination" << "source/later" << 0
        << failed << "%1/source/later could not be read: the service's user may not read it (Permission denied)"
        << "read permission on %1/source/later" << QStringList();
    QTest::newRow("a source file the service may not read") << "source" << "destination" << "source/later/small"
        << 0 << failed << "%1/source/later/small could not be read: the service's user may not read it"
        << "read permission on %1/source/later/small" << QStringList{"big.bin"};
}

void tst_Operations::runsThatDoNotSucceedSayWhyAndLeaveNoPartialFile()
{
    QFETCH(QString, source);
    QFETCH(QString, destination);
    QFETCH(QString, locked);
    QFETCH(int, change);
    QFETCH(quint64, outcome);
    QFETCH(QString, reason);
    QFETCH(QString, solution);
    QFETCH(QStringList, copied);
    writeFile(Source() + QStringLiteral("/big.bin"), bigContent(), QDateTime::currentDateTime());
    writeFile(Source() + QStringLiteral("/later/small"), "small", QDateTime::currentDateTime());
    writeFile(m_dir->filePath(QStringLiteral("file")), "x", QDateTime::currentDateTime());
    writeFile(m_dir->filePath(QStringLiteral("blocked/later")), "x", QDateTime::currentDateTime());
    const QString skip = Obstruct(destination, locked);
    if (!skip.isEmpty())
        QSKIP(qPrintable(skip));
    // Files of the top folder are copied before those of its subfolders.
    const Result result = Run(parameter(m_dir->filePath(source), m_dir->filePath(destination)),
                              [&](RunJob* job, quint64 done) {
        if (done == 0 || done > 2 * 1024 * 1024)
            return;
        if (change == 1)
            job->Cancel();
        else if (change == 2)
            QFile::resize(Source() + QStringLiteral("/big.bin"), 100);
        else if (change == 3)
            QFile::remove(Source() + QStringLiteral("/later/small"));
    });
    QCOMPARE(result.outcome, outcome);
    QVERIFY2(result.reason.contains(reason.replace("%1", m_dir->path())), qPrintable(result.reason));
    QVERIFY2(solution.isEmpty() ? result.solution.isEmpty() : result.solution.contains(solution.replace("%1", m_dir->path())),
             qPrintable(result.solution));
    QCOMPARE(filesBelow(m_dir->filePath(destination)), copied);
    QVERIFY(!QFileInfo::exists(m_dir->filePath(QStringLiteral("missing"))));
}

void tst_Operations::parametersAreChecked_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QByteArray>("parameter");
    QTest::addColumn<QString>("reason");   // empty: accepted

    QTest::newRow("lines with spaces and an exclude") << "copy" << QByteArray("source = /a\r\ndestination=/b\nexclude=*.o,x") << "";
    QTest::newRow("pairs separated by semicolons") << "copy" << QByteArray("source=/a;destination=/b/;verify=1") << "";
    QTest::newRow("a destination beside the source with a common prefix") << "copy" << QByteArray("source=/a;destination=/ab") << "";
    QTest::newRow("an empty block") << "copy" << QByteArray() << "copy wants source=FOLDER and destination=FOLDER lines";
    QTest::newRow("an empty destination") << "copy" << QByteArray("source=/a\ndestination=") << "copy wants";
    QTest::newRow("an unknown key") << "copy" << QByteArray("source=/a;target=/b") << "'target' is not a known key. copy wants";
    QTest::newRow("a line without a value") << "copy" << QByteArray("source=/a;destination=/b;/c") << "'/c' is not a key=value";
    QTest::newRow("a key given twice") << "copy" << QByteArray("source=/a;source=/c;destination=/b") << "'source' is given twice";
    QTest::newRow("a relative source") << "copy" << QByteArray("source=a;destination=/b") << "'a' is not an absolute path";
    QTest::newRow("a destination inside the source") << "copy" << QByteArray("source=/a;destination=/a/./b/") << "lies inside";
    QTest::newRow("a broken wildcard") << "copy" << QByteArray("source=/a;destination=/b;exclude=[") << "'[' is not a wildcard";
    QTest::newRow("a verify switch that is neither 0 nor 1") << "copy" << QByteArray("source=/a;destination=/b;verify=yes")
        << "'verify=yes' is neither verify=0 nor verify=1. copy wants";
    QTest::newRow("zip: folders, excludes, a number to keep and verify") << "zip" << QByteArray("source=/a;destination=/b;exclude=*.o;keep=3;verify=1") << "";
    QTest::newRow("zip: a number to keep that is not one") << "zip" << QByteArray("source=/a;destination=/b;keep=abc") << "'abc' is not a number of archives";
    QTest::newRow("zip: an unknown key") << "zip" << QByteArray("source=/a;destination=/b;keeps=1") << "'keeps' is not a known key. zip wants";
    QTest::newRow("zip: a destination inside the source") << "zip" << QByteArray("source=/a;destination=/a/b") << "lies inside";
    QTest::newRow("zip: a verify switch that is neither 0 nor 1") << "zip" << QByteArray("source=/a;destination=/b;verify=2") << "zip wants";
    QTest::newRow("restore: everything") << "restore" << QByteArray("source=/b/x.zip;destination=/r;path=d/./f;overwrite=1") << "";
    QTest::newRow("restore: no destination") << "restore" << QByteArray("source=/b") << "restore wants source=PATH and destination=FOLDER";
    QTest::newRow("restore: an absolute path") << "restore" << QByteArray("source=/b;destination=/r;path=/etc") << "'/etc' is not a path inside the backup";
    QTest::newRow("restore: a path that climbs out") << "restore" << QByteArray("source=/b;destination=/r;path=d/../../x") << "'d/../../x' is not a path inside";
    QTest::newRow("restore: an overwrite that is neither 0 nor 1") << "restore" << QByteArray("source=/b;destination=/r;overwrite=yes") << "restore wants";
    QTest::newRow("restore: a relative destination") << "restore" << QByteArray("source=/b;destination=r") << "'r' is not an absolute path";
    QTest::newRow("restore: a destination inside the backup") << "restore" << QByteArray("source=/b;destination=/b/r") << "lies inside the backup";
    QTest::newRow("verify: an archive alone") << "verify" << QByteArray("backup=/b.zip") << "";
    QTest::newRow("verify: a backup with a source and excludes") << "verify" << QByteArray("backup=/b;source=/a;exclude=*.o") << "";
    QTest::newRow("verify: no backup") << "verify" << QByteArray("source=/a") << "verify wants a backup=PATH line";
    QTest::newRow("verify: a relative source") << "verify" << QByteArray("backup=/b;source=a") << "'a' is not an absolute path";
    QTest::newRow("verify: a broken wildcard") << "verify" << QByteArray("backup=/b;source=/a;exclude=[") << "'[' is not a wildcard pattern. verify wants";
}

void tst_Operations::parametersAreChecked()
{
    QFETCH(QString, operation);
    QFETCH(QByteArray, parameter);
    QFETCH(QString, reason);
    TaskAttribute task;
    task.setOperationRegisterName(operation);
    task.setOperationParameter(parameter);
    QString refused;
    QCOMPARE(m_registry.Validate(task, refused), reason.isEmpty());
    QVERIFY2(refused.contains(reason), qPrintable(refused));
}

void tst_Operations::aJobsOwnSolutionReachesTheJournal_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QString>("solution");
    QTest::newRow("a copy's own solution") << "copy" << "Connect the drive that holds it";
    QTest::newRow("the general one for a job without") << "fail" << "Check the plan's operation";
}

void tst_Operations::aJobsOwnSolutionReachesTheJournal()
{
    QFETCH(QString, operation);
    QFETCH(QString, solution);
    SchedulerDatabase database;
    QVERIFY(database.Init(m_dir->filePath(QStringLiteral("plans.db"))));
    QString error;
    QVERIFY2(database.PrepareRunTable(error), qPrintable(error));
    SchedulerService::Settings settings;
    settings.emailFile = m_dir->filePath(QStringLiteral("email.ini"));
    const Clock clock;
    SchedulerService service(database, settings, clock);
    QVERIFY(service.Start());
    RequestNewOperationData data;
    data.getObjectTaskAttribute().setOperationRegisterName(operation);
    data.getObjectTaskAttribute().setOperationParameter(parameter(m_dir->filePath("gone"), Destination()));
    QString uuid;
    QCOMPARE(service.CreatePlan(QStringLiteral("copy"), data, uuid), SchedulerProtocol::NoError);
    QCOMPARE(service.RunNow(uuid), SchedulerProtocol::NoError);
    QList<JournalAttribute> journals;
    const auto journaled = [&] {
        journals.clear();
        return service.LoadJournals(uuid, journals) == SchedulerProtocol::NoError && journals.size() == 1;
    };
    QVERIFY(QTest::qWaitFor(journaled, 10000));
    QVERIFY2(journals.first().getSolution().startsWith(solution), qPrintable(journals.first().getSolution()));
    QTRY_VERIFY_WITH_TIMEOUT(!service.IsBusy(uuid), 5000);
}

int unzip(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("/usr/bin/unzip"), arguments);
    return process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

void tst_Operations::zipWritesAnArchiveThatUnzipRestoresByteForByte()
{
    makeTree(Source(), true);
    const Result result = Run(parameter(Source(), Destination(), "*.tmp") + ";keep=0", Hook(), "zip");
    QCOMPARE(result.outcome, quint64(SchedulerProtocol::Succeeded));
    QVERIFY2(QFileInfo(result.archive).fileName().contains(QRegularExpression("^nightly-\\d{8}-\\d{6}\\.zip$")),
             qPrintable(result.archive));
    QCOMPARE(filesBelow(Destination()), QStringList{QFileInfo(result.archive).fileName()});
    QCOMPARE(unzip({"-tq", result.archive}), 0);
    const QString out = m_dir->filePath("out");
    QCOMPARE(unzip({"-q", result.archive, "-d", out}), 0);
    const QStringList files = filesBelow(Source()).filter(QRegularExpression("^(?!.*\\.tmp$)"));
    QCOMPARE(filesBelow(out), files);
    QVERIFY(QFileInfo(out + "/empty").isDir());
    for (const QString& name : files) {
        QFile from(Source() + '/' + name), to(out + '/' + name);
        QVERIFY(from.open(QIODevice::ReadOnly) && to.open(QIODevice::ReadOnly));
        QVERIFY2(from.readAll() == to.readAll(), qPrintable(name));
        // A zip entry's time has two-second steps.
        QVERIFY(qAbs(QFileInfo(from).lastModified().secsTo(QFileInfo(to).lastModified())) <= 2);
    }
    QCOMPARE(result.progress.last().first, result.progress.last().second);
}

void tst_Operations::zipRunsThatDoNotSucceedLeaveNoArchive_data()
{
    QTest::addColumn<QString>("destination");   // as for the copy
    QTest::addColumn<QString>("locked");
    QTest::addColumn<int>("change");   // 0 none; 1 cancel once libzip wrote a part of the big file; 2 delete the small file first
    QTest::addColumn<quint64>("outcome");
    QTest::addColumn<QString>("reason");     // %1 the temporary folder, here and in the solution
    QTest::addColumn<QString>("solution");

    const quint64 failed = SchedulerProtocol::Failed;
    QTest::newRow("a cancel while the archive is written") << "destination" << "" << 1
        << quint64(SchedulerProtocol::Cancelled) << "cancelled" << "";
    QTest::newRow("a file that vanishes while the archive is written") << "destination" << "" << 2 << failed
        << "%1/source/later/small vanished" << "run the plan again";
    QTest::newRow("a destination that fills up") << "full" << "" << 0 << failed
        << "could not be written: the destination is full" << "Free space on the destination";
    QTest::newRow("a read-only destination") << "readonly" << "" << 0 << failed
        << "could not be written: the destination is on a read-only file system"
        << "Mount the destination's file system read-write";
    QTest::newRow("a destination folder the service may not write") << "destination" << "destination" << 0
        << failed << "the service's user may not write in %1/destination" << "write permission on %1/destination";
    QTest::newRow("a source file the service may not read") << "destination" << "source/later/small" << 0 << failed
        << "%1/source/later/small could not be read: the service's user may not read it"
        << "read permission on %1/source/later/small";
}

void tst_Operations::zipRunsThatDoNotSucceedLeaveNoArchive()
{
    QFETCH(QString, destination);
    QFETCH(QString, locked);
    QFETCH(int, change);
    QFETCH(quint64, outcome);
    QFETCH(QString, reason);
    QFETCH(QString, solution);
    writeFile(Source() + "/big.bin", bigContent(), QDateTime::currentDateTime());
    writeFile(Source() + "/later/small", "small", QDateTime::currentDateTime());
    const QString skip = Obstruct(destination, locked);
    if (!skip.isEmpty())
        QSKIP(qPrintable(skip));
    const Result result = Run(parameter(Source(), m_dir->filePath(destination)), [&](RunJob* job, quint64 done) {
        if (change == 1 && done > 0)
            job->Cancel();
        else if (change == 2)
            QFile::remove(Source() + "/later/small");
    }, "zip");
    QCOMPARE(result.outcome, outcome);
    QVERIFY2(result.reason.contains(reason.replace("%1", m_dir->path())), qPrintable(result.reason));
    QVERIFY2(result.solution.contains(solution.replace("%1", m_dir->path())), qPrintable(result.solution));
    QVERIFY(change != 1 || (result.progress.last().first > 0 && result.progress.last().first < result.progress.last().second));
    QCOMPARE(filesBelow(m_dir->filePath(destination)), QStringList());
}

void tst_Operations::zipKeepsOnlyThePlansNewestArchives()
{
    writeFile(Source() + "/a", "a", QDateTime::currentDateTime());
    const QStringList others{"nightly-20000101-000000.zip.bak", "nightly-old.zip", "other-20000101-000000.zip"};
    for (const QString& name : others)
        writeFile(Destination() + '/' + name, "not ours", QDateTime::currentDateTime());
    writeFile(Destination() + "/nightly-20000101-000000.zip", "oldest", QDateTime::currentDateTime());
    QStringList written;
    for (int run = 0; run < 3; ++run)
        written << QFileInfo(Run(parameter(Source(), Destination()) + "\nkeep=2", Hook(), "zip").archive).fileName();
    QStringList expected = others + written.mid(1);
    expected.sort();
    QCOMPARE(filesBelow(Destination()), expected);
}

// Backs the source up with "copy" or "zip" into the destination; the mirror folder or the archive.
QString tst_Operations::Backup(const QString& kind, const QByteArray& more, const Hook& hook, Result* result)
{
    const Result run = Run(parameter(Source(), Destination()) + more, hook, kind);
    if (result)
        *result = run;
    else if (run.outcome != SchedulerProtocol::Succeeded)
        qWarning("the %s backup failed: %s", qPrintable(kind), qPrintable(run.reason));
    return kind == "zip" ? run.archive : Destination();
}

// Inverts a few bytes of file where content's middle lies (an archive stores random bytes as they are).
void flipInside(const QString& file, const QByteArray& content)
{
    QFile f(file);
    QVERIFY(f.open(QIODevice::ReadWrite));
    const qint64 at = f.readAll().indexOf(content.mid(content.size() / 2, 16));
    QVERIFY2(at >= 0, "the content is not in the file");
    QVERIFY(f.seek(at));
    QByteArray bytes = content.mid(content.size() / 2, 4);
    for (char& byte : bytes)
        byte = static_cast<char>(~byte);
    QCOMPARE(f.write(bytes), qint64(4));
}

// Other content of the same size under the same time.
void changeKeepingSizeAndTime(const QString& path)
{
    const QDateTime time = QFileInfo(path).lastModified();
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadWrite));
    const QByteArray content = file.readAll();
    QVERIFY(file.seek(0) && file.write(QByteArray(content.size(), '#')) == content.size() && file.flush());
    QVERIFY(file.setFileTime(time, QFileDevice::FileModificationTime));
}

QByteArray randomBytes(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator random(4711);
    for (char& byte : bytes)
        byte = static_cast<char>(random.generate());
    return bytes;
}

void tst_Operations::restoreBringsBackTheTreeOrAPartOfIt_data()
{
    QTest::addColumn<QString>("kind");   // the operation that made the backup
    QTest::addColumn<QString>("path");
    for (const QString kind : {"copy", "zip"}) {
        QTest::addRow("the whole tree from %s", qPrintable(kind)) << kind << "";
        QTest::addRow("one sub-folder from %s", qPrintable(kind)) << kind << "d1";
        QTest::addRow("one file from %s", qPrintable(kind)) << kind << "d2/s2/f2.txt";
    }
}

void tst_Operations::restoreBringsBackTheTreeOrAPartOfIt()
{
    QFETCH(QString, kind);
    QFETCH(QString, path);
    makeTree(Source(), false);
    const QString restored = m_dir->filePath("restored/deep");   // made with its parent
    const Result result = Run(QStringLiteral("source=%1;destination=%2;path=%3").arg(Backup(kind), restored, path).toUtf8(),
                              Hook(), "restore");
    QCOMPARE(result.outcome, quint64(SchedulerProtocol::Succeeded));
    const QStringList files = filesBelow(Source()).filter(QRegularExpression(
        path.isEmpty() ? QString() : QStringLiteral("^%1(/|$)").arg(QRegularExpression::escape(path))));
    QCOMPARE(filesBelow(restored), files);
    QCOMPARE(result.copied, files.size());
    qint64 bytes = 0;
    for (const QString& name : files) {
        QFile from(Source() + '/' + name), to(restored + '/' + name);
        QVERIFY(from.open(QIODevice::ReadOnly) && to.open(QIODevice::ReadOnly));
        QVERIFY2(from.readAll() == to.readAll(), qPrintable(name));
        const QFileInfo source(from), copy(to);
        // A zip entry keeps the time in two-second steps.
        QVERIFY2(qAbs(copy.lastModified().secsTo(source.lastModified())) <= (kind == "zip" ? 1 : 0), qPrintable(name));
        QCOMPARE(copy.permissions() & ~kUserFlags, source.permissions() & ~kUserFlags);
        bytes += source.size();
    }
    QCOMPARE(result.progress.last(), qMakePair(quint64(bytes), quint64(bytes)));
}

void tst_Operations::restoreKeepsExistingFilesUnlessTold_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("overwrite");
    for (const QString kind : {"copy", "zip"}) {
        QTest::addRow("a file already there stays by default (%s)", qPrintable(kind)) << kind << 0;
        QTest::addRow("a file already there is replaced with overwrite=1 (%s)", qPrintable(kind)) << kind << 1;
    }
}

void tst_Operations::restoreKeepsExistingFilesUnlessTold()
{
    QFETCH(QString, kind);
    QFETCH(int, overwrite);
    makeTree(Source(), false);
    const QString backup = Backup(kind);
    const QString restored = m_dir->filePath("restored");
    writeFile(restored + "/d2/s2/f2.txt", "mine", QDateTime::currentDateTime(), QFileDevice::ReadOwner);
    const Result result = Run(QStringLiteral("source=%1\ndestination=%2\npath=d2\noverwrite=%3")
                                  .arg(backup, restored).arg(overwrite).toUtf8(), Hook(), "restore");
    QCOMPARE(result.outcome, quint64(SchedulerProtocol::Succeeded));
    QFile original(Source() + "/d2/s2/f2.txt"), existing(restored + "/d2/s2/f2.txt");
    QVERIFY(original.open(QIODevice::ReadOnly) && existing.open(QIODevice::ReadOnly));
    QCOMPARE(existing.readAll(), overwrite ? original.readAll() : QByteArray("mine"));
    QCOMPARE(result.copied, filesBelow(Source()).filter(QRegularExpression("^d2/")).size() - 1 + overwrite);
}

void tst_Operations::restoresThatDoNotSucceedWriteNothing_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("source");   // empty: the backup made by kind
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("into");   // "full" and "readonly" are file systems of their own; "locked" is mode 0
    QTest::addColumn<int>("change");   // 1 cancel on the first progress, 2 rename the entry zz/evil to ../evil
    QTest::addColumn<quint64>("outcome");
    QTest::addColumn<QString>("reason");   // %1 the temporary folder
    QTest::addColumn<QString>("solution");

    const quint64 failed = SchedulerProtocol::Failed;
    for (const QString kind : {"copy", "zip"}) {
        QTest::addRow("a cancel mid-file leaves no partial file (%s)", qPrintable(kind)) << kind << "" << "" << "restored"
            << 1 << quint64(SchedulerProtocol::Cancelled) << "The restore was cancelled after" << "";
        QTest::addRow("a path that is not in the backup (%s)", qPrintable(kind)) << kind << "" << "zz/good" << "restored"
            << 0 << failed << "zz/good is not in the backup" << "Correct path=";
        QTest::addRow("a destination that fills up drops the file being written (%s)", qPrintable(kind)) << kind << ""
            << "" << "full" << 0 << failed << "%1/full/big.bin could not be written: the destination is full"
            << "Free space on the destination";
        QTest::addRow("a read-only destination (%s)", qPrintable(kind)) << kind << "" << "" << "readonly" << 0 << failed
            << "folder %1/readonly/zz could not be made: the destination is on a read-only file system"
            << "Mount the destination's file system read-write";
        QTest::addRow("a destination the service may not write (%s)", qPrintable(kind)) << kind << "" << "" << "locked"
            << 0 << failed << "the service's user may not write in %1/locked (Permission denied)"
            << "Give the service's user write permission on";
    }
    QTest::newRow("an archive entry named ../evil refuses the archive") << "zip" << "" << "" << "restored" << 2 << failed
        << "holds an entry named '../evil', which would be written outside the destination; nothing was restored"
        << "Restore only archives written by the zip operation";
    QTest::newRow("a missing backup") << "copy" << "%1/missing" << "" << "restored" << 0 << failed
        << "The backup %1/missing does not exist." << "Connect the drive that holds it";
}

void tst_Operations::restoresThatDoNotSucceedWriteNothing()
{
    QFETCH(QString, kind);
    QFETCH(QString, source);
    QFETCH(QString, path);
    QFETCH(QString, into);
    QFETCH(int, change);
    QFETCH(quint64, outcome);
    QFETCH(QString, reason);
    QFETCH(QString, solution);
    const QString restored = m_dir->filePath(into);
    QVERIFY(QDir().mkpath(restored));
    const QString skip = Obstruct(into, into == "locked" ? into : QString());
    if (!skip.isEmpty())
        QSKIP(qPrintable(skip));
    writeFile(Source() + "/big.bin", bigContent(), QDateTime::currentDateTime());
    writeFile(Source() + "/zz/evil", "evil", QDateTime::currentDateTime());
    QString backup = Backup(kind);
    if (change == 2) {
        QFile archive(backup);
        QVERIFY(archive.open(QIODevice::ReadWrite));
        const QByteArray bytes = archive.readAll();
        QVERIFY(archive.seek(0) && archive.write(QByteArray(bytes).replace("zz/evil", "../evil")) == bytes.size());
    }
    const Result result = Run(QStringLiteral("source=%1;destination=%2;path=%3")
                                  .arg(source.isEmpty() ? backup : source.arg(m_dir->path()), restored, path).toUtf8(),
                              [&](RunJob* job, quint64 done) {
        if (change == 1 && done > 0)
            job->Cancel();
    }, "restore");
    QCOMPARE(result.outcome, outcome);
    QVERIFY2(result.reason.contains(reason.replace("%1", m_dir->path())), qPrintable(result.reason));
    QVERIFY2(result.solution.contains(solution), qPrintable(result.solution));
    QCOMPARE(filesBelow(restored), QStringList());
    QVERIFY(!QFileInfo::exists(m_dir->filePath("evil")));
}

void tst_Operations::verifyReportsWhatIsWrong_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("damage");   // 1 a file changed with size and time kept and one gone, 2 bytes of blob.bin
                                       // flipped, 3 every copy gone, 4 the archive cut in half
    QTest::addColumn<bool>("inRun");   // the backup itself verifies (verify=1), damaged as its verify starts
    QTest::addColumn<QStringList>("reason");   // empty: succeeds
    QTest::addColumn<QString>("solution");

    const QStringList none;
    QTest::newRow("an intact mirror passes") << "copy" << 0 << false << none << "";
    QTest::newRow("an intact archive passes, also against its source") << "zip" << 0 << false << none << "";
    QTest::newRow("a copy that verifies what it wrote passes") << "copy" << 0 << true << none << "";
    QTest::newRow("a zip that verifies what it wrote keeps its archive") << "zip" << 0 << true << none << "";
    QTest::newRow("a mirror file changed in content and one missing") << "copy" << 1 << false
        << QStringList{"in 2 files: ", "d1/s1/f1.txt (missing)", "d2/s2/f2.txt (different in content)"}
        << "Run the plan again to bring the copy up to date; if files keep differing in content";
    QTest::newRow("a mirror with every copy gone lists twenty and counts the rest") << "copy" << 3 << false
        << QStringList{"in 39 files: ", " (missing), and 19 more."} << "Run the plan again";
    QTest::newRow("an archive with bytes flipped inside an entry names it") << "zip" << 2 << false
        << QStringList{"has 1 problem: blob.bin (damaged: "} << "The archive is damaged: run the plan again";
    QTest::newRow("an archive cut in half is unreadable") << "zip" << 4 << false
        << QStringList{"could not be read: "} << "The archive is damaged";
    QTest::newRow("a copy whose mirror is damaged while it verifies fails") << "copy" << 1 << true
        << QStringList{"d2/s2/f2.txt (different in content)"} << "Run the plan again";
    QTest::newRow("a zip whose archive is damaged while it verifies fails and keeps nothing") << "zip" << 2 << true
        << QStringList{"blob.bin (damaged: ", "It was deleted."} << "The archive is damaged";
}

void tst_Operations::verifyReportsWhatIsWrong()
{
    QFETCH(QString, kind);
    QFETCH(int, damage);
    QFETCH(bool, inRun);
    QFETCH(QStringList, reason);
    QFETCH(QString, solution);
    makeTree(Source(), false);
    const QByteArray blob = randomBytes(64 * 1024);
    writeFile(Source() + "/blob.bin", blob, QDateTime::currentDateTime());
    const auto doDamage = [&](const QString& backup) {
        if (damage == 1) {
            changeKeepingSizeAndTime(backup + "/d2/s2/f2.txt");
            QFile::remove(backup + "/d1/s1/f1.txt");
        } else if (damage == 2) {
            flipInside(backup, blob);
        } else if (damage == 3) {
            QDir(backup).removeRecursively();
            QDir().mkpath(backup);
        } else if (damage == 4) {
            QFile::resize(backup, QFileInfo(backup).size() / 2);
        }
    };
    Result result;
    bool moved = false;
    const QString backup = Backup(kind, inRun ? "\nverify=1" : "", [&](RunJob*, quint64 done) {
        if (inRun && done == 0 && moved) {   // the verify's progress starts over
            const QStringList parts = QDir(Destination()).entryList({".*.part"}, QDir::Files | QDir::Hidden);
            doDamage(kind == "zip" ? Destination() + '/' + parts.value(0) : Destination());
        }
        moved = moved || done > 0;
    }, &result);
    if (!inRun) {
        QCOMPARE(result.outcome, quint64(SchedulerProtocol::Succeeded));
        doDamage(backup);
        const QString source = damage == 2 || damage == 4 ? QString() : Source();   // an archive alone
        result = Run(QStringLiteral("backup=%1;source=%2").arg(backup, source).toUtf8(), Hook(), "verify");
    }
    QCOMPARE(result.outcome, quint64(reason.isEmpty() ? SchedulerProtocol::Succeeded : SchedulerProtocol::Failed));
    for (const QString& part : reason)
        QVERIFY2(result.reason.contains(part), qPrintable(result.reason));
    QVERIFY2(solution.isEmpty() ? result.solution.isEmpty() : result.solution.startsWith(solution),
             qPrintable(result.solution));
    if (inRun && kind == "zip")
        QCOMPARE(filesBelow(Destination()).size(), reason.isEmpty() ? 1 : 0);
    if (reason.isEmpty())
        QCOMPARE(result.progress.last().first, result.progress.last().second);
}

QTEST_GUILESS_MAIN(tst_Operations)
#include "tst_operations.moc"
