GENOSTAT /JOB FILE='a.fastq' NAME='c1'.
GENOSTAT /JOB FILE='a.fastq' NAME='c2'.
:jobs
:cancel c2
:cancel 'c2'
:jobs
:quit
GENOSTAT /JOB FILE='a.fastq' NAME='never'.
