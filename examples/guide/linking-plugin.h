#pragma once

#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <connector/api/ServiceProvider.h>

#include <memory>
#include <string>
#include <utility>

// Included by host and plugin.

struct Text : connector::Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

/// Exported by the plugin. Creates its provider, and stores the version of the plugin in `data`.
extern "C" void openPlugin(std::shared_ptr<connector::ServiceProvider>& service, connector::Context& data);
