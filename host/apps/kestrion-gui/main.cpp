#include "host/apps/kestrion-gui/GuiApplication.h"

#include <QApplication>

#include <iostream>
#include <string>

int main(int argc, char** argv) {
    // Answered before QApplication, which needs a display.
    const std::string answer = Kestrion::Gui::GuiOptions::answerWithoutDisplay(argc, argv);
    if (!answer.empty()) {
        std::cout << answer;
        return 0;
    }
    QApplication application(argc, argv);
    QApplication::setOrganizationName("Kestrion");
    QApplication::setApplicationName("kestrion-gui");
    const Kestrion::Gui::GuiOptions options = Kestrion::Gui::GuiOptions::parse(QApplication::arguments());
    if (options.help) {
        std::cout << Kestrion::Gui::GuiOptions::usage();
        return 0;
    }
    if (!options.error.empty()) {
        std::cerr << "kestrion-gui: " << options.error << "\n" << Kestrion::Gui::GuiOptions::usage();
        return 2;
    }
    Kestrion::Gui::GuiApplication gui(options);
    gui.start();
    return gui.run();
}
