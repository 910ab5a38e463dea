#ifndef BACKUPFRAME_DESKTOP_EMAILDIALOG_H
#define BACKUPFRAME_DESKTOP_EMAILDIALOG_H

#include <backupframe.h>

#include <QDialog>

class DesktopClient;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

// The service's e-mail settings: loaded when shown, saved with Save, tried with "Send test mail"
// (the settings as they stand in the dialog, not yet saved) whose outcome the dialog shows.
class EmailDialog : public QDialog
{
    Q_OBJECT

public:
    EmailDialog(DesktopClient* client, QWidget* parent = nullptr);

    void Load();
    EmailConfigAttribute Settings() const;
    void SetSettings(const EmailConfigAttribute& settings);
    QString Outcome() const;

signals:
    void saved();

private:
    void Save();
    void SendTest();
    void Say(const QString& text, bool good);
    void SetBusy(bool busy);

    DesktopClient* m_client;
    QCheckBox* m_enable;
    QLineEdit* m_recipients;
    QLineEdit* m_server;
    QSpinBox* m_port;
    QComboBox* m_encryption;
    QCheckBox* m_auth;
    QLineEdit* m_user;
    QLineEdit* m_password;
    QLineEdit* m_sender;
    QLineEdit* m_subject;
    QCheckBox* m_onSuccess;
    QCheckBox* m_onFailure;
    QPushButton* m_test;
    QPushButton* m_save;
    QLabel* m_outcome;
};

#endif
