// A GTK 3 application on GLib's main loop: shows the state of the link and the last bodies, and
// sends what is typed into its field.
// usage: glib_window ADDRESS PORT
#include <glib-unix.h>
#include <gtk/gtk.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>

#include "client/clientdatasource.h"
#include "client/ftwindow.h"

namespace {

constexpr unsigned int kMessage = 1;
constexpr int kMostAtOnce = 200;  // notifications before GTK draws and hears its user again
constexpr std::size_t kShownBodies = 8;
constexpr gssize kShownBytes = 96;

class HostWindow {
 public:
  HostWindow(const char* address, int port) : m_server(address + (":" + std::to_string(port))) {
    MakeWidgets();
    Show();
    const int fd = FTGetWindowFd(m_messages);
    m_watch = g_unix_fd_add(fd, G_IO_IN, &HostWindow::TakeMessages, this);
    m_source.Link(address, port, "", 0, "", 0, "", 0, "", 0, m_messages, kMessage);
  }

  ~HostWindow() {
    m_source.UnLink();
    g_source_remove(m_watch);
    FTDestroyWindow(m_messages);  // with the bodies that are left
  }

  HostWindow(const HostWindow&) = delete;
  HostWindow& operator=(const HostWindow&) = delete;

 private:
  // The descriptor stays readable while messages are left, so GLib calls again.
  static gboolean TakeMessages(gint, GIOCondition, gpointer self) {
    auto* const host = static_cast<HostWindow*>(self);
    FTWindowMsg msg;
    for (int i = 0; i < kMostAtOnce && FTWaitMessage(host->m_messages, &msg, 0) == 1; ++i) {
      if (msg.wParam == 0) {
        host->OnLinkEvent(msg.lParam);
      } else {
        host->OnBody(reinterpret_cast<char*>(msg.wParam), msg.lParam);
      }
    }
    host->Show();
    return G_SOURCE_CONTINUE;
  }

  void OnLinkEvent(intptr_t link_event) {
    const bool up = link_event == LINK_EVENT_UP;
    gtk_widget_set_sensitive(m_ask, up ? TRUE : FALSE);  // a request before the link is up is lost
    m_progress = up ? "Linked to " : "Linking again to ";
  }

  // A body may hold anything; what is shown of it is text.
  void OnBody(char* body, intptr_t length) {
    char* const text = g_utf8_make_valid(body, MIN(length, kShownBytes));
    ++m_packages;
    m_bodies.emplace_back(text);
    if (m_bodies.size() > kShownBodies) m_bodies.pop_front();
    g_free(text);
    m_source.FreeBuffer(body);
  }

  static void Ask(GtkWidget*, gpointer self) {
    auto* const host = static_cast<HostWindow*>(self);
    const std::string request = gtk_entry_get_text(GTK_ENTRY(host->m_input));
    if (host->m_source.AskData(request.data(), static_cast<unsigned int>(request.size())) != 0) {
      return;
    }
    gtk_entry_set_text(GTK_ENTRY(host->m_input), "");
    gtk_widget_grab_focus(host->m_input);
  }

  void Show() {
    const std::string state = m_progress + m_server + ", packages: " + std::to_string(m_packages);
    gtk_label_set_text(GTK_LABEL(m_state), state.c_str());
    gtk_window_set_title(GTK_WINDOW(m_window), state.c_str());
    std::string bodies;
    for (const std::string& body : m_bodies) bodies += body + '\n';
    gtk_label_set_text(GTK_LABEL(m_list), bodies.c_str());
  }

  void MakeWidgets() {
    gtk_window_set_default_size(GTK_WINDOW(m_window), 400, 260);
    gtk_container_set_border_width(GTK_CONTAINER(m_window), 10);
    gtk_widget_set_halign(m_state, GTK_ALIGN_START);
    gtk_label_set_xalign(GTK_LABEL(m_list), 0);
    gtk_label_set_yalign(GTK_LABEL(m_list), 0);
    gtk_label_set_ellipsize(GTK_LABEL(m_list), PANGO_ELLIPSIZE_END);
    GtkWidget* const row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 6);
    gtk_box_pack_start(GTK_BOX(row), m_input, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(row), m_ask, FALSE, FALSE, 0);
    GtkWidget* const column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 6);
    gtk_box_pack_start(GTK_BOX(column), m_state, FALSE, FALSE, 0);
    gtk_box_pack_start(GTK_BOX(column), m_list, TRUE, TRUE, 0);
    gtk_box_pack_start(GTK_BOX(column), row, FALSE, FALSE, 0);
    gtk_container_add(GTK_CONTAINER(m_window), column);
    // The Enter key in the field does what the button does.
    gtk_entry_set_activates_default(GTK_ENTRY(m_input), TRUE);
    gtk_widget_set_can_default(m_ask, TRUE);
    gtk_widget_grab_default(m_ask);
    gtk_widget_grab_focus(m_input);
    gtk_widget_set_sensitive(m_ask, FALSE);
    g_signal_connect(m_ask, "clicked", G_CALLBACK(&HostWindow::Ask), this);
    g_signal_connect(m_window, "delete-event", G_CALLBACK(&HostWindow::Close), nullptr);
    gtk_widget_show_all(m_window);
  }

  static gboolean Close(GtkWidget*, GdkEvent*, gpointer) {
    gtk_main_quit();
    return TRUE;
  }

  CClientDataSource m_source;
  const unsigned int m_messages = FTCreateWindow();
  guint m_watch = 0;
  const std::string m_server;
  std::string m_progress = "Linking to ";
  int m_packages = 0;
  std::deque<std::string> m_bodies;
  GtkWidget* const m_window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWidget* const m_state = gtk_label_new(nullptr);
  GtkWidget* const m_list = gtk_label_new(nullptr);
  GtkWidget* const m_input = gtk_entry_new();
  GtkWidget* const m_ask = gtk_button_new_with_label("Ask");
};

gboolean Quit(gpointer) {
  gtk_main_quit();
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main(int argc, char** argv) {
  if (gtk_init_check(&argc, &argv) == FALSE || argc != 3) {
    std::fprintf(stderr, "usage: glib_window ADDRESS PORT      where there is a display\n");
    return 2;
  }
  const HostWindow window(argv[1], std::atoi(argv[2]));
  g_unix_signal_add(SIGINT, &Quit, nullptr);
  gtk_main();
  return 0;
}
