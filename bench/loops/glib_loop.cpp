// GLib's main loop.

#include <glib-unix.h>

#include "bench/event_loop.h"

namespace {

class GlibLoop : public Loop {
public:
    ~GlibLoop() override {
        for (GSource* const source : m_sources) {
            g_source_destroy(source);
            g_source_unref(source);
        }
        g_main_loop_unref(m_loop);
        g_main_context_unref(m_context);
    }

    void Watch(Client& client) override {
        GSource* const source = g_unix_fd_source_new(client.GetFd(), G_IO_IN);
        const GUnixFDSourceFunc ready = [](gint, GIOCondition, gpointer watched) -> gboolean {
            static_cast<Client*>(watched)->OnReady();
            return G_SOURCE_CONTINUE;
        };
        g_source_set_callback(source, G_SOURCE_FUNC(ready), &client, nullptr);
        g_source_attach(source, m_context);
        m_sources.push_back(source);
    }

    void AddTimer(Alarm& alarm, std::int64_t deadline) override {
        GSource* const source = g_timeout_source_new(0);
        g_source_set_ready_time(source, (deadline + 999) / 1000);  // microseconds of the same clock
        g_source_set_callback(
            source,
            [](gpointer fired) -> gboolean {
                static_cast<Alarm*>(fired)->OnTime();
                return G_SOURCE_REMOVE;
            },
            &alarm, nullptr);
        g_source_attach(source, m_context);
        g_source_unref(source);
    }

    void Call(Client& client) override {
        g_main_context_invoke_full(
            m_context, G_PRIORITY_DEFAULT,
            [](gpointer called) -> gboolean {
                static_cast<Client*>(called)->OnReady();
                return G_SOURCE_REMOVE;
            },
            &client, nullptr);
    }

    void Run() override { g_main_loop_run(m_loop); }
    void Stop() override { g_main_loop_quit(m_loop); }

private:
    GMainContext* const m_context = g_main_context_new();
    GMainLoop* const m_loop = g_main_loop_new(m_context, FALSE);
    std::vector<GSource*> m_sources;
};

const RegisteredLoop<GlibLoop> KIND("GLib");

}  // namespace
