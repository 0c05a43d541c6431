// ServedMessage: a message whose handlers use the server's services.
#pragma once

#include "messageBuilders.h"
#include "services.h"

class ServedMessage : public FragmentedMessageBuilder {
  public:
    explicit ServedMessage(int length, const Services& services)
        : FragmentedMessageBuilder(length), m_services(&services) {}

  protected:
    const Services& services() const { return *m_services; }

  private:
    const Services* m_services;
};
