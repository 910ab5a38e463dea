#include "journalsview.h"

#include "desktopclient.h"
#include "protocol.h"

#include <QAction>
#include <QComboBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardItemModel>
#include <QTableView>
#include <QVBoxLayout>

#include <algorithm>

namespace {

QString duration(quint64 ms)
{
    const quint64 seconds = ms / 1000;
    if (seconds < 60)
        return JournalsView::tr("%1 s").arg(ms / 1000.0, 0, 'f', 1);
    return JournalsView::tr("%1:%2 min").arg(seconds / 60).arg(seconds % 60, 2, 10, QLatin1Char('0'));
}

QColor resultColor(const QString& result)
{
    if (result == SchedulerProtocol::OutcomeText(SchedulerProtocol::Succeeded))
        return QColor(0x1b, 0x7f, 0x3b);
    if (result == SchedulerProtocol::OutcomeText(SchedulerProtocol::Failed))
        return QColor(0xb0, 0x00, 0x20);
    return QColor(0x8a, 0x5a, 0x00);
}

} // namespace

JournalsView::JournalsView(DesktopClient* client, QWidget* parent)
    : QWidget(parent)
    , m_client(client)
{
    m_confirm = [this](const QString& question) {
        return QMessageBox::question(this, tr("Delete journals"), question) == QMessageBox::Yes;
    };
    m_plan = new QComboBox(this);
    m_plan->setObjectName(QStringLiteral("journalPlan"));
    m_plan->addItem(tr("All plans"), QString());
    m_model = new QStandardItemModel(0, ColumnCount, this);
    m_model->setHorizontalHeaderLabels({tr("Plan"), tr("Started"), tr("Took"), tr("Result"), tr("What went wrong"),
                                        tr("What to do")});
    m_view = new QTableView(this);
    m_view->setObjectName(QStringLiteral("journals"));
    m_view->setModel(m_model);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_view->setWordWrap(true);
    m_view->verticalHeader()->hide();
    m_view->setAlternatingRowColors(true);
    // The reason and what to do are read in full: both share the room left, wrapped.
    for (int column = 0; column < ColumnCount; ++column)
        m_view->horizontalHeader()->setSectionResizeMode(column, column == ReasonColumn || column == SolutionColumn
                                                                     ? QHeaderView::Stretch
                                                                     : QHeaderView::ResizeToContents);
    m_view->verticalHeader()->setSectionResizeMode(QHeaderView::ResizeToContents);
    m_deleteSelected = new QPushButton(tr("&Delete selected…"), this);
    m_deleteSelected->setObjectName(QStringLiteral("deleteSelected"));
    m_deleteAll = new QPushButton(tr("Delete &all…"), this);
    m_deleteAll->setObjectName(QStringLiteral("deleteAll"));
    auto* reload = new QPushButton(tr("Re&load"), this);
    m_state = new QLabel(this);

    auto* top = new QHBoxLayout;
    auto* label = new QLabel(tr("Sh&ow:"), this);
    label->setBuddy(m_plan);
    top->addWidget(label);
    top->addWidget(m_plan, 1);
    top->addWidget(reload);
    auto* bottom = new QHBoxLayout;
    bottom->addWidget(m_state, 1);
    bottom->addWidget(m_deleteSelected);
    bottom->addWidget(m_deleteAll);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_view, 1);
    layout->addLayout(bottom);

    connect(m_plan, QOverload<int>::of(&QComboBox::currentIndexChanged), this, &JournalsView::Reload);
    connect(reload, &QPushButton::clicked, this, &JournalsView::Reload);
    connect(m_deleteSelected, &QPushButton::clicked, this, &JournalsView::DeleteSelected);
    connect(m_deleteAll, &QPushButton::clicked, this, &JournalsView::DeleteAll);
    auto* deleteKey = new QAction(tr("Delete selected journals"), m_view);
    deleteKey->setShortcut(QKeySequence::Delete);
    deleteKey->setShortcutContext(Qt::WidgetShortcut);
    connect(deleteKey, &QAction::triggered, this, &JournalsView::DeleteSelected);
    m_view->addAction(deleteKey);
}

void JournalsView::SetPlans(const QList<QPair<QString, QString>>& plans)
{
    const QString current = m_plan->currentData().toString();
    const QSignalBlocker blocker(m_plan);
    while (m_plan->count() > 1)
        m_plan->removeItem(1);
    for (const auto& plan : plans)
        m_plan->addItem(plan.second, plan.first);
    const int index = m_plan->findData(current);
    m_plan->setCurrentIndex(index < 0 ? 0 : index);
}

void JournalsView::ShowPlan(const QString& planUuid)
{
    const int index = m_plan->findData(planUuid);
    if (index >= 0 && index != m_plan->currentIndex())
        m_plan->setCurrentIndex(index);   // reloads
    else
        Reload();
}

void JournalsView::Reload()
{
    const quint64 generation = ++m_generation;
    m_client->Send(LoadJournalsType, m_plan->currentData().toString(), QString(), QByteArray(),
                   [this, generation](const DesktopClient::Reply& reply) {
        if (generation != m_generation)
            return;
        ResultLoadJournalsData data;
        if (!reply.ok() || !SchedulerProtocol::DecodePayload(reply.data, data)) {
            m_state->setText(reply.ok() ? tr("The journals could not be read.")
                                        : tr("The journals could not be read: %1").arg(reply.error));
            return;
        }
        QList<JournalAttribute> journals;
        for (const JournalAttribute* journal : data.getJournalAttrList())
            journals.append(*journal);
        Fill(journals);
    });
}

void JournalsView::Fill(const QList<JournalAttribute>& journals)
{
    QList<JournalAttribute> newestFirst = journals;
    // The service sends the oldest first; a stable sort keeps its order among equal start times.
    std::reverse(newestFirst.begin(), newestFirst.end());
    std::stable_sort(newestFirst.begin(), newestFirst.end(), [](const JournalAttribute& a, const JournalAttribute& b) {
        return a.getStartTime() > b.getStartTime();
    });
    m_model->removeRows(0, m_model->rowCount());
    for (const JournalAttribute& journal : newestFirst) {
        QList<QStandardItem*> row{new QStandardItem(journal.getPlanName()), new QStandardItem(journal.getStartTime()),
                                  new QStandardItem(duration(journal.getTimeConsuming())),
                                  new QStandardItem(journal.getResult()), new QStandardItem(journal.getErrorReason()),
                                  new QStandardItem(journal.getSolution())};
        row[PlanColumn]->setData(journal.getJournalUuid(), Qt::UserRole);
        row[ResultColumn]->setForeground(resultColor(journal.getResult()));
        row[ReasonColumn]->setToolTip(journal.getErrorReason());
        row[SolutionColumn]->setToolTip(journal.getSolution());
        m_model->appendRow(row);
    }
    m_state->setText(tr("%n journal(s)", nullptr, newestFirst.size()));
    m_deleteAll->setEnabled(!newestFirst.isEmpty());
}

void JournalsView::DeleteSelected()
{
    QStringList uuids;
    for (const QModelIndex& index : m_view->selectionModel()->selectedRows(PlanColumn))
        uuids << index.data(Qt::UserRole).toString();
    if (uuids.isEmpty()) {
        m_state->setText(tr("Select the journals to delete first."));
        return;
    }
    if (!m_confirm(tr("Delete %n selected journal(s)? This cannot be undone.", nullptr, uuids.size())))
        return;
    QstringListData data;
    data.setQstringList(uuids);
    Delete(DeleteSelectJournalType, SchedulerProtocol::EncodePayload(data));
}

void JournalsView::DeleteAll()
{
    if (!m_confirm(tr("Delete the journals of all plans? This cannot be undone.")))
        return;
    Delete(DeleteAllJournalType, QByteArray());
}

void JournalsView::Delete(quint64 type, const QByteArray& payload)
{
    m_client->Send(type, QString(), QString(), payload, [this](const DesktopClient::Reply& reply) {
        if (!reply.ok())
            m_state->setText(tr("The journals were not deleted: %1").arg(reply.error));
        Reload();   // the service also tells every subscriber, this view included
    });
}
