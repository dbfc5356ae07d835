// main() for an app test executable that needs a QApplication (QProcess,
// D-Bus, widgets). Include it in exactly one .cpp of the executable; it takes
// the place of gtest_main. Runs on the offscreen platform unless
// QT_QPA_PLATFORM says otherwise, so test discovery at build time needs no
// display either.
#ifndef ZEV_TESTS_APP_FAKES_QT_TEST_MAIN_H_
#define ZEV_TESTS_APP_FAKES_QT_TEST_MAIN_H_

#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
  if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication app(argc, argv);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}

#endif  // ZEV_TESTS_APP_FAKES_QT_TEST_MAIN_H_
