#pragma once

#include "Platform/TrashAccess.h"
#include "Views/ViewServices.h"

#include <QMargins>
#include <QSize>
#include <QString>
#include <QStringList>
#include <QWidget>
#include <optional>

class QLabel;
class QLineEdit;
class QPushButton;
class QVBoxLayout;

namespace quillane
{

// One page of the first-run guide: a centred column that explains one step and offers the button
// that starts it. Each time the page is shown it checks whether its step is already done and, if
// so, closes the window it is in.
class SetupPage : public QWidget
{
    Q_OBJECT

public:
    // The button that Return and Enter press wherever the focus is in the page.
    QPushButton* defaultButton() const { return m_defaultButton; }

protected:
    explicit SetupPage(const ViewServices& services, QWidget* parent);

    // Whether this page's step is done, read from the models when the page is shown.
    virtual bool stepDone() const = 0;
    void showEvent(QShowEvent* event) override;

    // The parts the pages are made of, added to the column in order.
    void addLargeTitle(const QString& text, int paddingAbove, int paddingBelow);
    void addTitle(const QString& text, int paddingBelow);
    QLabel* addText(const QString& text, const QMargins& padding = {});
    // One of our pictures at its own size, or scaled to fit the frame keeping its proportions
    // (the frame's height is kept). A picture that cannot be read leaves its place empty.
    void addPicture(const QString& name, std::optional<QSize> frame = std::nullopt);
    // A command the user may copy into a terminal: a read-only line and a button that copies it.
    QLineEdit* addCommand(const QString& command, QPushButton** copyButton = nullptr);
    // A button of the large control size; with bodyText, in the body text's size.
    QPushButton* makeButton(const QString& text, bool bodyText);
    void setDefaultButton(QPushButton* button);
    QVBoxLayout* column() const { return m_column; }

    const ViewServices m_services;

private:
    QVBoxLayout* m_column;
    QPushButton* m_defaultButton = nullptr;
};

// Access to the user's own trash: what the program does, what keeps it from the trash folder,
// and how to fix that.
class FDAView final : public SetupPage
{
    Q_OBJECT

public:
    static constexpr QSize pageSize{720, 800};

    FDAView(const ViewServices& services, QWidget* parent = nullptr);

    // What is wrong with the trash folder, in a sentence that names it, and the command that
    // fixes it (empty when no command can: a confinement profile is not ours to change).
    struct Diagnosis {
        QString problem;
        QString command;
    };
    static Diagnosis diagnose(const std::optional<TrashAccessProblem>& problem,
                              const QString& userName);

    QLabel* problemLabel() const { return m_problem; }
    QLineEdit* commandField() const { return m_command; }
    // Shown when the helper is there to do the fix; null otherwise.
    QPushButton* repairButton() const { return m_repair; }
    QLabel* outcomeLabel() const { return m_outcome; }

protected:
    bool stepDone() const override;

private:
    QLabel* m_problem = nullptr;
    QLineEdit* m_command = nullptr;
    QPushButton* m_repair = nullptr;
    QLabel* m_outcome = nullptr;
};

// Installing the privileged helper: installing it is all the approval it needs.
class HelperView final : public SetupPage
{
    Q_OBJECT

public:
    static constexpr QSize pageSize{600, 500};

    HelperView(const ViewServices& services, QWidget* parent = nullptr);

    // The command that installs the package this build makes.
    static QString installCommand(const QString& version);

protected:
    bool stepDone() const override;
};

// Starting the program at login, or declining it for good.
class LoginItemView final : public SetupPage
{
    Q_OBJECT

public:
    static constexpr QSize pageSize{600, 500};

    LoginItemView(const ViewServices& services, QWidget* parent = nullptr);

    QPushButton* noThanksButton() const { return m_noThanks; }

protected:
    bool stepDone() const override;

private:
    QPushButton* m_noThanks = nullptr;
};

// The setup window's content: the one page that the models' state calls for, chosen again each
// time that state changes, at exactly that page's size.
class SetupView final : public QWidget
{
    Q_OBJECT

public:
    enum class Page { None, FullDiskAccess, Helper, LoginItem };

    explicit SetupView(const ViewServices& services, QWidget* parent = nullptr);

    static Page pageFor(bool fdaGranted, bool helperRegistered, bool showLoginLaunchScreen);

    Page page() const { return m_page; }
    // The page shown, or null when there is none.
    SetupPage* currentPage() const { return m_current; }

private:
    void choosePage();

    const ViewServices m_services;
    Page m_page = Page::None;
    SetupPage* m_current = nullptr;
};

} // namespace quillane
