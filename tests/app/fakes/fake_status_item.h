// A StatusItem that records what the controller gave it into a record the
// test keeps, so it can still be read once the controller owns the item.
#ifndef ZEV_TESTS_APP_FAKES_FAKE_STATUS_ITEM_H_
#define ZEV_TESTS_APP_FAKES_FAKE_STATUS_ITEM_H_

#include <vector>

// Brings QImage, QRect, QString, std::function, std::shared_ptr and std::optional.
#include "app/ports/status_item.h"

namespace zev::testing {

struct StatusItemRecord {
  std::vector<QImage> images;
  QString title;
  QString toolTip;
  std::function<void()> onClick;
  std::optional<QRect> anchor;
};

class FakeStatusItem : public StatusItem {
 public:
  FakeStatusItem(std::shared_ptr<StatusItemRecord> record, bool hasButton = true)
      : m_record(std::move(record)), m_hasButton(hasButton) {}
  bool hasButton() const override { return m_hasButton; }
  void setImage(const QImage& image) override { m_record->images.push_back(image); }
  void setTitle(const QString& title) override { m_record->title = title; }
  void setToolTip(const QString& toolTip) override { m_record->toolTip = toolTip; }
  void setClickHandler(std::function<void()> onClick) override {
    m_record->onClick = std::move(onClick);
  }
  std::optional<QRect> anchorRect() const override { return m_record->anchor; }

 private:
  std::shared_ptr<StatusItemRecord> m_record;
  bool m_hasButton;
};

}  // namespace zev::testing

#endif  // ZEV_TESTS_APP_FAKES_FAKE_STATUS_ITEM_H_
