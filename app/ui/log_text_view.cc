#include "app/ui/log_text_view.h"

#include <QFontDatabase>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextOption>

#include "app/log_text.h"

namespace velmar::app {

LogTextView::LogTextView(QWidget* parent) : QPlainTextEdit(parent) {
  setReadOnly(true);
  // Selectable but without a caret, as a record that is read, not edited.
  setTextInteractionFlags(Qt::TextSelectableByMouse);
  setLineWrapMode(QPlainTextEdit::WidgetWidth);
  setUndoRedoEnabled(false);
  formatTextView();
}

void LogTextView::formatTextView() {
  QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  font.setPointSizeF(kLogFontSize);
  document()->setDefaultFont(font);
  // Tab stops are given in points like the font size; the text layout
  // counts pixels, so scale by the screen's points-to-pixels ratio.
  const double pixelsPerPoint = logicalDpiX() / 72.0;
  QList<QTextOption::Tab> tabs;
  for (double stop : logTabStops()) tabs.append(QTextOption::Tab(stop * pixelsPerPoint, QTextOption::LeftTab));
  QTextOption option = document()->defaultTextOption();
  option.setTabs(tabs);
  document()->setDefaultTextOption(option);
}

void LogTextView::hiliteKeywordsStartingAt(int start) {
  QTextCursor cursor(document());
  cursor.setPosition(start);
  cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
  // Line breaks come back as one separator character each, so positions in
  // this text are document positions less `start`.
  const QString tail = cursor.selectedText();
  std::u16string_view text(reinterpret_cast<const char16_t*>(tail.utf16()), static_cast<size_t>(tail.size()));
  for (const KeywordRange& range : keywordRanges(text, 0)) {
    QTextCharFormat format;
    format.setBackground(QColor::fromRgbF(range.background.red, range.background.green, range.background.blue));
    QTextCursor word(document());
    word.setPosition(start + static_cast<int>(range.location));
    word.setPosition(start + static_cast<int>(range.location + range.length), QTextCursor::KeepAnchor);
    word.mergeCharFormat(format);
  }
}

void LogTextView::setLogText(const std::string& text) {
  setPlainText(QString::fromStdString(text));
  formatTextView();
  hiliteKeywordsStartingAt(0);
  scrollToEnd();
}

void LogTextView::appendLogText(const std::string& text) {
  if (text.empty()) return;
  QTextCursor end(document());
  end.movePosition(QTextCursor::End);
  const int start = end.position();
  // An explicit plain format, or the new text would take on the background
  // of a keyword that ends the log.
  end.insertText(QString::fromStdString(text), QTextCharFormat());
  hiliteKeywordsStartingAt(start);
  scrollToEnd();
}

void LogTextView::scrollToEnd() { verticalScrollBar()->setValue(verticalScrollBar()->maximum()); }

}  // namespace velmar::app
