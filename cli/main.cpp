#include <QApplication>

#include <clocale>

#include "CliSupport.h"
#include "scene/KvoStore.h"

using namespace qvcli;

namespace {

void usage()
{
    out("Usage: quovara-cli COMMAND [ARGS]\n       quovara-cli COMMAND --help\n\nCommands:");
    for (auto& kv : commands())
        out(QString("  %1\n      %2").arg(kv.second.usage, kv.second.help));
}

// Earlier versions spelled some commands differently; scripts keep working.
QString canonicalName(const QString& name)
{
    if (name == "add-image")
        return "add-images";
    return name;
}

} // namespace

int main(int argc, char** argv)
{
    // Commands that run dialogs (scripted by flags) need widgets; there is no screen.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    std::setlocale(LC_NUMERIC, "C");
    kvo::setPresenter(kvo::ref_ptr<kvo::IKvoPresenter>(cliPresenter()));
    QStringList args = app.arguments().mid(1);
    if (args.isEmpty() || args[0] == "help" || args[0] == "--help" || args[0] == "-h") {
        if (args.size() >= 2 && commands().count(canonicalName(args[1]))) {
            const Command& c = commands()[canonicalName(args[1])];
            out(QString("Usage: quovara-cli %1\n\n%2").arg(c.usage, c.help));
            return 0;
        }
        usage();
        return args.isEmpty() ? 2 : 0;
    }
    auto it = commands().find(canonicalName(args[0]));
    if (it == commands().end()) {
        err(QString("unknown command '%1'; run quovara-cli --help for the list").arg(args[0]));
        return 2;
    }
    const Command& command = it->second;
    const QStringList rest = args.mid(1);
    if (rest.contains("--help") || rest.contains("-h")) {
        out(QString("Usage: quovara-cli %1\n\n%2").arg(command.usage, command.help));
        return 0;
    }
    int rc = command.run(rest);
    if (rc == 2)
        err(QString("usage: quovara-cli %1").arg(command.usage));
    kvo::getMM()->closeProject();
    kvo::setPresenter(nullptr);
    return rc;
}
