#pragma once

#include <connector/api/Context.h>
#include <connector/api/Message.h>
#include <connector/api/ServiceProvider.h>

#include <memory>
#include <string>
#include <utility>

// What host and plugin agree on.

struct Text : connector::Message {
    explicit Text(std::string text) : text(std::move(text)) {}
    std::string text;
};

/// Exported by the plugin: makes its service, and leaves in `data` what others may want to know of it.
extern "C" void openPlugin(std::shared_ptr<connector::ServiceProvider>& service, connector::Context& data);
