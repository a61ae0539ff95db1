// The ui library's widgets on the offscreen platform: the alert panel's
// buttons and the four status images. The tray tests read the status menu
// through the tray itself.

#include <gtest/gtest.h>

#include <QApplication>
#include <QMessageBox>
#include <QPainter>
#include <QSvgRenderer>
#include <QTimer>

#include "ui/alert_panel.h"
#include "ui/status_icons.h"

namespace halyard::ui {
namespace {

using agent::AlertResponse;

TEST(AlertPanel, EachButtonShowsItsTextAndEndsTheRunItsWay) {
  struct Case {
    const char* name;
    agent::AlertRequest request;
    void (AlertPanel::*choice)();
    AlertResponse expected;
    QStringList buttons;  // sorted
  } cases[] = {
      {"OK: stop", {.title = "T", .message = "M"}, &AlertPanel::okSelected, AlertResponse::Stop, {"Cancel", "OK"}},
      {"Cancel: abort, with the request's own texts",
       {.title = "T", .message = "M", .okTitle = "Use It", .cancelTitle = "Leave It"},
       &AlertPanel::cancelSelected,
       AlertResponse::Abort,
       {"Leave It", "Use It"}},
      {"Cancel disabled: OK is the only way out",
       {.title = "T", .message = "M", .cancelEnabled = false},
       &AlertPanel::cancelSelected,
       AlertResponse::Stop,
       {"Cancel", "OK"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AlertPanel panel;
    QStringList shown;
    QTimer::singleShot(0, [&] {
      if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
        for (QAbstractButton* button : box->buttons()) shown << button->text();
      }
      (panel.*c.choice)();
      panel.okSelected();  // ends the run when the choice did not
    });
    EXPECT_EQ(panel.runAlertPanel(c.request), c.expected);
    shown.sort();
    EXPECT_EQ(shown, c.buttons);
  }
}

// The status image `name` drawn at `size` px over `background`.
QImage rendered(const QString& name, int size, QColor background) {
  QImage image(size, size, QImage::Format_ARGB32);
  image.fill(background);
  QPainter painter(&image);
  QSvgRenderer(statusIconPath(name)).render(&painter);
  painter.end();
  return image;
}

// The share of pixels of the image drawn over `panel` that stand out from it.
double contrastingShare(const QString& name, int size, QColor panel) {
  const QImage image = rendered(name, size, panel);
  int standing = 0;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) standing += std::abs(qGray(image.pixel(x, y)) - qGray(panel.rgb())) > 96;
  }
  return double(standing) / (size * size);
}

TEST(StatusImages, LegibleOnLightAndDarkPanelsAndTheStatesDifferInShape) {
  for (const QString name : {"HYStatusBar", "HYStatusBarH", "HYStatusBar_S", "HYStatusBar_SH"}) {
    ASSERT_TRUE(QSvgRenderer(statusIconPath(name)).isValid()) << name.toStdString();
    for (int size : {16, 22, 24}) {
      for (QColor panel : {QColor("#f0f0f0"), QColor("#202020")}) {
        SCOPED_TRACE(name.toStdString() + " at " + std::to_string(size) + " px on " + panel.name().toStdString());
        EXPECT_GT(contrastingShare(name, size, panel), 0.1);
      }
    }
  }
  // Shape, not colour: the two states' images differ in their alpha masks.
  const auto mask = [](const QString& name) {
    return rendered(name, 22, Qt::transparent).convertToFormat(QImage::Format_Alpha8);
  };
  EXPECT_NE(mask("HYStatusBar"), mask("HYStatusBar_S"));
  EXPECT_EQ(mask("HYStatusBar"), mask("HYStatusBarH")) << "the highlighted image keeps the shape";
}

}  // namespace
}  // namespace halyard::ui

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
