// LogTextView: the log window's read-only text view. It shows the log in the
// fixed-pitch font with tab stops every 50 points and puts the keyword
// backgrounds (log_text.h) on what is added.

#ifndef VELMAR_APP_UI_LOG_TEXT_VIEW_H_
#define VELMAR_APP_UI_LOG_TEXT_VIEW_H_

#include <QPlainTextEdit>
#include <string>

namespace velmar::app {

class LogTextView : public QPlainTextEdit {
  Q_OBJECT

 public:
  explicit LogTextView(QWidget* parent = nullptr);

  // Replaces the whole text, colours it and scrolls to its end.
  void setLogText(const std::string& text);
  // Appends at the end in the plain format, colours the new part and keeps
  // the end in view.
  void appendLogText(const std::string& text);

  // The font and tab stops for the whole document.
  void formatTextView();
  // Keyword backgrounds from `start` (a document position) to the end.
  void hiliteKeywordsStartingAt(int start);

 private:
  void scrollToEnd();
};

}  // namespace velmar::app

#endif  // VELMAR_APP_UI_LOG_TEXT_VIEW_H_
