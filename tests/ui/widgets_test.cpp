// The ui library's widgets on the offscreen platform: the alert panel's
// buttons, the status menu's tagged entries refilled from a model, and the
// four status images.

#include <gtest/gtest.h>

#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPainter>
#include <QSvgRenderer>
#include <QTimer>

#include "ui/alert_panel.h"
#include "ui/status_icons.h"
#include "ui/tray_status_item.h"

namespace halyard::ui {
namespace {

using agent::AlertResponse;

TEST(AlertPanel, EachButtonEndsTheRunItsWay) {
  struct Case {
    const char* name;
    bool cancelEnabled;
    void (AlertPanel::*choice)();
    AlertResponse expected;
  } cases[] = {{"OK: stop", true, &AlertPanel::okSelected, AlertResponse::Stop},
               {"Cancel: abort", true, &AlertPanel::cancelSelected, AlertResponse::Abort},
               {"Cancel disabled: OK is the only way out", false, &AlertPanel::cancelSelected, AlertResponse::Stop}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AlertPanel panel;
    QTimer::singleShot(0, [&] {
      (panel.*c.choice)();
      panel.okSelected();  // ends the run when the choice did not
    });
    EXPECT_EQ(panel.runAlertPanel({"Title", "Message", c.cancelEnabled}), c.expected);
  }
}

TEST(AlertPanel, ButtonsCarryTheTextsTheRequestGives) {
  struct Case {
    const char* name;
    agent::AlertRequest request;
    QStringList buttons;
  } cases[] = {{"the usual buttons", {.title = "Title", .message = "Message"}, {"OK", "Cancel"}},
               {"the request's own",
                {.title = "Title", .message = "Message", .okTitle = "Use It", .cancelTitle = "Leave It"},
                {"Use It", "Leave It"}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    AlertPanel panel;
    QStringList shown;
    QTimer::singleShot(0, [&] {
      if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
        for (QAbstractButton* button : box->buttons()) shown << button->text();
      }
      panel.okSelected();
    });
    panel.runAlertPanel(c.request);
    shown.sort();
    QStringList expected = c.buttons;
    expected.sort();
    EXPECT_EQ(shown, expected);
  }
}

TEST(TrayStatusItem, OpeningTheMenuFillsItFromTheModel) {
  TrayStatusItem item;
  auto document = std::make_shared<KSScheduledItem>(CalendarDate::make(0, TimeZone::make("UTC")));
  std::vector<std::pair<std::string, bool>> opened;
  item.setMenuActions({.menuNeedsUpdate =
                           [&] {
                             return agent::StatusMenuModel{
                                 {{"Photos", false, false, nullptr}, {"today", false, false, nullptr}},
                                 {{"Photos", true, true, document}, {"Gone", false, false, document}},
                                 "Resume",
                                 "Suspended"};
                           },
                       .openSyncDocument = [&](const KSScheduledItem&, bool alt) { opened.emplace_back("doc", alt); }});
  using namespace agent::menu_tags;
  for (int tag : {kNextRun, kDocuments, kToggleScheduler, kSchedulerState}) EXPECT_TRUE(item.entry(tag)) << tag;
  item.menuNeedsUpdate();
  EXPECT_EQ(item.entry(kToggleScheduler)->text(), "Resume");
  EXPECT_EQ(item.entry(kSchedulerState)->text(), "Suspended");
  EXPECT_FALSE(item.entry(kSchedulerState)->isEnabled());
  const QList<QAction*> next = item.entry(kNextRun)->menu()->actions();
  ASSERT_EQ(next.size(), 2);
  EXPECT_FALSE(next[0]->isEnabled() || next[1]->isEnabled());
  const QList<QAction*> documents = item.entry(kDocuments)->menu()->actions();
  ASSERT_EQ(documents.size(), 2);
  EXPECT_TRUE(documents[0]->isEnabled() && documents[0]->isChecked());
  EXPECT_FALSE(documents[1]->isEnabled() || documents[1]->isChecked());
  documents[0]->trigger();
  documents[1]->trigger();  // greyed: leads nowhere
  EXPECT_EQ(opened.size(), 1u);
  item.menuNeedsUpdate();  // refilled, not appended to
  EXPECT_EQ(item.entry(kDocuments)->menu()->actions().size(), 2);
}

// The share of pixels of the image drawn over `panel` that stand out from it.
double contrastingShare(const QString& name, int size, QColor panel) {
  QImage image(size, size, QImage::Format_ARGB32);
  image.fill(panel);
  QPainter painter(&image);
  QSvgRenderer(statusIconPath(name)).render(&painter);
  painter.end();
  int standing = 0;
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      if (std::abs(qGray(image.pixel(x, y)) - qGray(panel.rgb())) > 96) ++standing;
    }
  }
  return double(standing) / (size * size);
}

TEST(StatusImages, LegibleOnLightAndDarkPanelsAndTheStatesDifferInShape) {
  const QString names[] = {"HYStatusBar", "HYStatusBarH", "HYStatusBar_S", "HYStatusBar_SH"};
  for (const QString& name : names) {
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
    QImage image(22, 22, QImage::Format_ARGB32);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    QSvgRenderer(statusIconPath(name)).render(&painter);
    painter.end();
    return image.convertToFormat(QImage::Format_Alpha8);
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
