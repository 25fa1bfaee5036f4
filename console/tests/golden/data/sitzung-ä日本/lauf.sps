GENOSTAT /PRINT SAMPLE_COUNT=2 VARIABLE_COUNT=25 MESSAGE=100
   /JOB NAME='probe'.

  	 
  :jobs  
GENOSTAT /JOB FILE='nope.fq' NAME='it''s. "x.
'.
GENOSTAT /JOB
  :cancel x
  NAME='y'.
FROB x.
'quoted'.
GENOSTAT /JOB FILE='/d/ä|€|À¯|í €|â‚'.
:cancel nobody
:cancel
:frobnicate
:cancel "x"
DATASET NAME x.
GENOSTAT /NOSUCH