#include "emaildialog.h"

#include "desktopclient.h"
#include "protocol.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

// The service's mail timeout is 30 s by default (at most 600 s); the answer comes when the send has ended.
constexpr int kTestAnswerMs = 90000;

} // namespace

EmailDialog::EmailDialog(DesktopClient* client, QWidget* parent)
    : QDialog(parent)
    , m_client(client)
{
    setWindowTitle(tr("E-mail notifications"));
    setMinimumWidth(480);
    m_enable = new QCheckBox(tr("Send a mail &after runs"), this);
    m_enable->setObjectName(QStringLiteral("enable"));
    m_recipients = new QLineEdit(this);
    m_recipients->setObjectName(QStringLiteral("recipients"));
    m_recipients->setPlaceholderText(tr("me@example.org, backup@example.org"));
    m_server = new QLineEdit(this);
    m_server->setObjectName(QStringLiteral("smtpServer"));
    m_port = new QSpinBox(this);
    m_port->setObjectName(QStringLiteral("smtpPort"));
    m_port->setRange(0, 65535);
    m_port->setSpecialValueText(tr("default"));
    m_encryption = new QComboBox(this);
    m_encryption->setObjectName(QStringLiteral("encryption"));
    m_encryption->addItems({tr("None"), tr("STARTTLS"), tr("TLS (SMTPS)")});
    m_auth = new QCheckBox(tr("The server wants a &login"), this);
    m_auth->setObjectName(QStringLiteral("auth"));
    m_user = new QLineEdit(this);
    m_user->setObjectName(QStringLiteral("user"));
    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("password"));
    m_password->setEchoMode(QLineEdit::Password);
    m_sender = new QLineEdit(this);
    m_sender->setObjectName(QStringLiteral("sender"));
    m_subject = new QLineEdit(this);
    m_subject->setObjectName(QStringLiteral("subject"));
    m_subject->setPlaceholderText(tr("backupframe: PLAN RESULT"));
    m_onSuccess = new QCheckBox(tr("when a run su&cceeds"), this);
    m_onSuccess->setObjectName(QStringLiteral("onSuccess"));
    m_onFailure = new QCheckBox(tr("when a run &fails"), this);
    m_onFailure->setObjectName(QStringLiteral("onFailure"));
    m_outcome = new QLabel(this);
    m_outcome->setObjectName(QStringLiteral("outcome"));
    m_outcome->setWordWrap(true);
    m_outcome->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* form = new QFormLayout;
    form->addRow(QString(), m_enable);
    form->addRow(tr("&Recipients:"), m_recipients);
    form->addRow(tr("S&MTP server:"), m_server);
    form->addRow(tr("&Port:"), m_port);
    form->addRow(tr("&Encryption:"), m_encryption);
    form->addRow(QString(), m_auth);
    form->addRow(tr("&User:"), m_user);
    form->addRow(tr("Pass&word:"), m_password);
    form->addRow(tr("Se&nder:"), m_sender);
    form->addRow(tr("Su&bject:"), m_subject);
    form->addRow(tr("Mail:"), m_onSuccess);
    form->addRow(QString(), m_onFailure);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    m_test = buttons->addButton(tr("Send &test mail"), QDialogButtonBox::ActionRole);
    m_test->setObjectName(QStringLiteral("sendTest"));
    m_save = buttons->addButton(QDialogButtonBox::Save);
    m_save->setObjectName(QStringLiteral("save"));
    connect(buttons, &QDialogButtonBox::rejected, this, &EmailDialog::reject);
    connect(m_test, &QPushButton::clicked, this, &EmailDialog::SendTest);
    connect(m_save, &QPushButton::clicked, this, &EmailDialog::Save);
    connect(m_auth, &QCheckBox::toggled, m_user, &QWidget::setEnabled);
    connect(m_auth, &QCheckBox::toggled, m_password, &QWidget::setEnabled);

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_outcome);
    layout->addWidget(buttons);
    m_user->setEnabled(false);
    m_password->setEnabled(false);
}

void EmailDialog::Load()
{
    SetBusy(true);
    m_client->Send(LoadEmailConfigType, QString(), QString(), QByteArray(), [this](const DesktopClient::Reply& reply) {
        SetBusy(false);
        RequestEmailConfigUpdateData data;
        if (!reply.ok() || !SchedulerProtocol::DecodePayload(reply.data, data)) {
            Say(tr("The settings could not be read: %1").arg(reply.error), false);
            return;
        }
        SetSettings(data.getEmailConfigAttribute());
        Say(QString(), true);
    });
}

EmailConfigAttribute EmailDialog::Settings() const
{
    EmailConfigAttribute settings;
    settings.setEnableEmailNotification(m_enable->isChecked() ? 1 : 0);
    settings.setMailRecipients(m_recipients->text().trimmed());
    settings.setSmtpServerAddress(m_server->text().trimmed());
    settings.setSmtpServerPort(static_cast<quint16>(m_port->value()));
    settings.setSmtpServerEncryptionType(static_cast<quint64>(m_encryption->currentIndex()));
    settings.setStmpAuthentication(m_auth->isChecked() ? 1 : 0);
    settings.setLoginUserName(m_user->text());
    settings.setLoginPassword(m_password->text().toUtf8());
    settings.setMailSender(m_sender->text().trimmed());
    settings.setMailSubject(m_subject->text());
    settings.setOperationSuccessful(m_onSuccess->isChecked() ? 1 : 0);
    settings.setOperationFailure(m_onFailure->isChecked() ? 1 : 0);
    return settings;
}

void EmailDialog::SetSettings(const EmailConfigAttribute& settings)
{
    m_enable->setChecked(settings.getEnableEmailNotification() != 0);
    m_recipients->setText(settings.getMailRecipients());
    m_server->setText(settings.getSmtpServerAddress());
    m_port->setValue(settings.getSmtpServerPort());
    m_encryption->setCurrentIndex(static_cast<int>(qMin<quint64>(settings.getSmtpServerEncryptionType(), 2)));
    m_auth->setChecked(settings.getStmpAuthentication() != 0);
    m_user->setText(settings.getLoginUserName());
    m_password->setText(QString::fromUtf8(settings.getLoginPassword()));
    m_sender->setText(settings.getMailSender());
    m_subject->setText(settings.getMailSubject());
    m_onSuccess->setChecked(settings.getOperationSuccessful() != 0);
    m_onFailure->setChecked(settings.getOperationFailure() != 0);
}

QString EmailDialog::Outcome() const
{
    return m_outcome->text();
}

void EmailDialog::Save()
{
    RequestEmailConfigUpdateData data;
    data.setEmailConfigAttribute(Settings());
    SetBusy(true);
    m_client->Send(EmailConfigUpdateType, QString(), QString(), SchedulerProtocol::EncodePayload(data),
                   [this](const DesktopClient::Reply& reply) {
        SetBusy(false);
        if (!reply.ok()) {
            Say(tr("The settings were not saved: %1").arg(reply.error), false);
            return;
        }
        Say(tr("Settings saved."), true);
        emit saved();
    });
}

void EmailDialog::SendTest()
{
    if (m_recipients->text().trimmed().isEmpty() || m_server->text().trimmed().isEmpty()) {
        Say(tr("Give at least one recipient and the SMTP server first."), false);
        return;
    }
    RequestEmailConfigUpdateData data;
    data.setEmailConfigAttribute(Settings());
    SetBusy(true);
    Say(tr("Sending the test mail…"), true);
    m_client->Send(EmailMessageTestType, QString(), QString(), SchedulerProtocol::EncodePayload(data),
                   [this](const DesktopClient::Reply& reply) {
        SetBusy(false);
        if (reply.ok())
            Say(SchedulerProtocol::ReasonOf(reply.data), true);
        else
            Say(tr("The test mail was not sent: %1").arg(reply.error), false);
    }, kTestAnswerMs);
}

void EmailDialog::Say(const QString& text, bool good)
{
    m_outcome->setText(text);
    m_outcome->setStyleSheet(good ? QString() : QStringLiteral("color: #b00020;"));
}

void EmailDialog::SetBusy(bool busy)
{
    m_test->setEnabled(!busy);
    m_save->setEnabled(!busy);
}
