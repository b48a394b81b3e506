/* UDP sockets. */
#ifndef DT_NET_H
#define DT_NET_H

#include "net/DTSock.h"

#endif
