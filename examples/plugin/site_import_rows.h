/* Rows of the plug-in's string table, for the resource script and for the service. */
#ifndef SITE_IMPORT_ROWS_H
#define SITE_IMPORT_ROWS_H

#define ROW_BEGINS 100 /* %1 the plug-in, %2 the region */
#define ROW_READ 101   /* %1 sites, %2 the region, %3 new ones, %4 changed ones */

#endif
