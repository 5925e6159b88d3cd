#ifndef VELLIB_VELLIB_H
#define VELLIB_VELLIB_H

/* vellib: everything that the library exports, by subsystem. */

/* Foundation */
#include <vellib/velapi.h>
#include <vellib/velerror.h>
#include <vellib/vellimit.h>
#include <vellib/vellog.h>
#include <vellib/velmalloc.h>
#include <vellib/velmallocfail.h>
#include <vellib/velsizet.h>
#include <vellib/veluninit.h>

/* Strings and numbers */
#include <vellib/velasprintf.h>
#include <vellib/velconvert.h>
#include <vellib/velendswith.h>
#include <vellib/veli64tostr.h>
#include <vellib/velmemdup.h>
#include <vellib/velmemmem.h>
#include <vellib/velsnprintf.h>
#include <vellib/velstdio.h>
#include <vellib/velstrcasecmp.h>
#include <vellib/velstrdup.h>
#include <vellib/velstrdup_lowercase.h>
#include <vellib/velstrdupf.h>
#include <vellib/velstrncasecmp.h>
#include <vellib/velstrnchr.h>
#include <vellib/velstrncpy.h>
#include <vellib/velstrndup.h>
#include <vellib/velstrstrip.h>
#include <vellib/velstrtoi64.h>

/* Base */
#include <vellib/vellist.h>
#include <vellib/velmutex.h>
#include <vellib/veltime.h>

/* Containers */
#include <vellib/velcache.h>
#include <vellib/velhash.h>
#include <vellib/velhashfunc.h>
#include <vellib/velstringhash.h>

/* Documents */
#include <vellib/veljson.h>
#include <vellib/velxml.h>

/* Wide characters */
#include <vellib/velpunycode_wchar.h>
#include <vellib/velwchar.h>
#include <vellib/velwcs.h>

/* Concurrency and time */
#include <vellib/velcond.h>
#include <vellib/vellockqueue.h>
#include <vellib/velrwlock.h>
#include <vellib/velsignal.h>
#include <vellib/velsleep.h>
#include <vellib/velthread.h>
#include <vellib/velthreadpool.h>
#include <vellib/veltimeout.h>
#include <vellib/veltimer.h>

/* Files */
#include <vellib/veldeletefile.h>
#include <vellib/veldir.h>
#include <vellib/velfile.h>
#include <vellib/velhardlink.h>
#include <vellib/velmkdir.h>
#include <vellib/velrename.h>
#include <vellib/velrmdir.h>
#include <vellib/velstat.h>
#include <vellib/velsymlink.h>
#include <vellib/veltruncate.h>
#include <vellib/velutf8deletefile.h>
#include <vellib/velutf8dir.h>
#include <vellib/velutf8file.h>
#include <vellib/velutf8hardlink.h>
#include <vellib/velutf8mkdir.h>
#include <vellib/velutf8rename.h>
#include <vellib/velutf8rmdir.h>
#include <vellib/velutf8stat.h>
#include <vellib/velutf8symlink.h>
#include <vellib/velwdeletefile.h>

/* Transport */
#include <vellib/veladdrinfo.h>
#include <vellib/velhandle.h>
#include <vellib/velhandle_tcp.h>
#include <vellib/velhandle_udp.h>
#include <vellib/velsocket.h>
#include <vellib/veltcpserver.h>
#include <vellib/veludpserver.h>

/* Event loop */
#include <vellib/velasync.h>
#include <vellib/velasync_handle.h>
#include <vellib/velasync_operations.h>
#include <vellib/velasync_socket.h>
#include <vellib/velasync_timeout.h>

/* Encodings */
#include <vellib/velbase64.h>
#include <vellib/velbin2hex.h>
#include <vellib/velhex2bin.h>
#include <vellib/velpem2der.h>
#include <vellib/velurldecode.h>
#include <vellib/velurlencode.h>

/* URLs */
#include <vellib/velpunycode.h>
#include <vellib/velpunycode_velurl.h>
#include <vellib/velurl.h>

/* HTTP client */
#include <vellib/velhttp.h>
#include <vellib/velhttp_deprecated.h>
#include <vellib/velhttp_lite.h>
#include <vellib/velhttpheaders.h>

/* ICAP client */
#include <vellib/velicap.h>

/* Digests and random */
#include <vellib/velrandom.h>
#include <vellib/velsha1.h>
#include <vellib/velsha256.h>
#include <vellib/veluuid.h>

/* Paths and INI files */
#include <vellib/velinifile.h>
#include <vellib/velpath.h>

/* Program support */
#include <vellib/velformat.h>
#include <vellib/velgethostname.h>
#include <vellib/velgetopt.h>
#include <vellib/vellibrary.h>
#include <vellib/vellocalization.h>
#include <vellib/velsetenv.h>
#include <vellib/veltest.h>
#include <vellib/veluname.h>

#endif
