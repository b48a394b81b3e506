/* UDP sockets and remote configuration. */
#ifndef DT_NET_H
#define DT_NET_H

#include "net/DTConfig.h"
#include "net/DTSock.h"

#endif
