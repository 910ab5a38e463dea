// The main window's plan actions: new, edit, delete, run now and cancel, each one request.
#include "mainwindow.h"

#include "plandialog.h"
#include "planmodel.h"
#include "protocol.h"

#include <QItemSelectionModel>
#include <QPointer>
#include <QSortFilterProxyModel>
#include <QTableView>

using namespace SchedulerProtocol;

namespace {

// A cancel is answered once the run has ended, which may take a moment for a big copy.
constexpr int kCancelAnswerMs = 60000;

} // namespace

bool MainWindow::SelectedPlan(SchedulerPlan& plan) const
{
    const QModelIndexList rows = m_view->selectionModel()->selectedRows();
    if (rows.isEmpty())
        return false;
    const int row = m_proxy->mapToSource(rows.first()).row();
    if (row < 0 || row >= m_model->rowCount())
        return false;
    plan = m_model->PlanAt(row);
    return true;
}

void MainWindow::NewPlan()
{
    auto* dialog = new PlanDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->SetOperations(m_operations);
    connect(dialog, &PlanDialog::submitted, this, [this, dialog] { SubmitPlan(dialog, true); });
    dialog->open();
}

void MainWindow::EditPlan()
{
    SchedulerPlan plan;
    if (!SelectedPlan(plan) || !m_client->IsUp())
        return;
    auto* dialog = new PlanDialog(this);
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->SetOperations(m_operations);
    dialog->SetPlan(plan);
    connect(dialog, &PlanDialog::submitted, this, [this, dialog] { SubmitPlan(dialog, false); });
    dialog->open();
}

void MainWindow::SubmitPlan(PlanDialog* dialog, bool isNew)
{
    QByteArray payload;
    QString uuid;
    if (isNew) {
        RequestNewOperationData data = dialog->NewOperationData();
        payload = EncodePayload(data);
    } else {
        SchedulerPlanData data;
        data.setSchedulerPlan(dialog->EditedPlan());
        uuid = data.getRfrnSchedulerPlan().getPlanUuid();
        payload = EncodePayload(data);
    }
    const QPointer<PlanDialog> guard(dialog);
    dialog->setEnabled(false);
    m_client->Send(isNew ? NewOperationType : EditOperationType, uuid, dialog->PlanName(), payload,
                   [this, guard](const DesktopClient::Reply& reply) {
        if (!guard)
            return;
        guard->setEnabled(true);
        SchedulerPlanData stored;
        if (!reply.ok() || !DecodePayload(reply.data, stored)) {
            guard->ShowProblem(tr("The service did not store the plan: %1").arg(reply.error));
            return;
        }
        const SchedulerPlan& plan = stored.getRfrnSchedulerPlan();
        m_model->Upsert(plan);
        UpdateJournalPlans();
        m_view->selectRow(m_proxy->mapFromSource(m_model->index(m_model->RowOf(plan.getPlanUuid()), 0)).row());
        Tell(tr("Plan \"%1\" saved.").arg(plan.getPlanName()));
        guard->done(QDialog::Accepted);
    });
}

void MainWindow::DeletePlan()
{
    SchedulerPlan plan;
    if (!SelectedPlan(plan))
        return;
    if (!m_confirm(tr("Delete the plan \"%1\"? Its journals stay.").arg(plan.getPlanName())))
        return;
    const QString uuid = plan.getPlanUuid();
    m_client->Send(DeleteOperationType, uuid, plan.getPlanName(), QByteArray(),
                   [this, uuid, plan](const DesktopClient::Reply& reply) {
        if (!reply.ok()) {
            Tell(tr("\"%1\" was not deleted: %2").arg(plan.getPlanName(), reply.error));
            return;
        }
        m_model->Remove(uuid);
        UpdateJournalPlans();
        Tell(tr("Plan \"%1\" deleted.").arg(plan.getPlanName()));
    });
}

void MainWindow::RunPlan()
{
    PlanRequest(ExecuteOperationType, tr("started"));
}

void MainWindow::CancelPlan()
{
    PlanRequest(CancelOperationType, tr("cancelled"), kCancelAnswerMs);
}

void MainWindow::PlanRequest(quint64 type, const QString& verb, int timeoutMs)
{
    SchedulerPlan plan;
    if (!SelectedPlan(plan))
        return;
    const QString name = plan.getPlanName();
    m_client->Send(type, plan.getPlanUuid(), name, QByteArray(), [this, name, verb](const DesktopClient::Reply& reply) {
        SchedulerPlanData state;
        if (!reply.ok() || !DecodePayload(reply.data, state)) {
            Tell(tr("\"%1\" was not %2: %3").arg(name, verb, reply.error));
            return;
        }
        m_model->Upsert(state.getRfrnSchedulerPlan());
        Tell(tr("\"%1\" %2.").arg(name, verb));
    }, timeoutMs);
}
