# Golden values for the statistics procedures, made by R from dataset.csv: every figure of the
# tables the tests check, formatted as the tables print them. A tool, run by hand:
#   Rscript make_goldens.R        (writes the *.tsv files beside it)
# Lines are "table<TAB>row<TAB>column<TAB>cell".
args <- commandArgs(trailingOnly = FALSE)
here <- dirname(normalizePath(sub("^--file=", "", args[grep("^--file=", args)])))
d <- read.csv(file.path(here, "dataset.csv"), na.strings = "")

fmt <- function(v, dec) {
  if (length(v) == 0 || is.na(v) || !is.finite(v)) return(".")
  s <- sprintf(paste0("%.", dec, "f"), v)
  if (grepl("^-0\\.?0*$", s)) s <- sub("^-", "", s)
  s
}
lines <- character()
emit <- function(table, row, column, cell) lines <<- c(lines, paste(table, row, column, cell, sep = "\t"))
flush <- function(name) { writeLines(lines, file.path(here, paste0(name, ".tsv"))); lines <<- character() }

g1 <- function(x) { n <- length(x); s <- sd(x); if (n < 3 || s == 0) NA else n / ((n - 1) * (n - 2)) * sum(((x - mean(x)) / s)^3) }
g2 <- function(x) { n <- length(x); s <- sd(x); if (n < 4 || s == 0) NA else
  n * (n + 1) / ((n - 1) * (n - 2) * (n - 3)) * sum(((x - mean(x)) / s)^4) - 3 * (n - 1)^2 / ((n - 2) * (n - 3)) }
seG1 <- function(n) if (n < 3) NA else sqrt(6 * n * (n - 1) / ((n - 2) * (n + 1) * (n + 3)))
seG2 <- function(n) if (n < 4) NA else 2 * seG1(n) * sqrt((n^2 - 1) / ((n - 3) * (n + 5)))

# ---- DESCRIPTIVES VARIABLES=y x1 t c s /STATISTICS=ALL
for (v in c("y", "x1", "t", "c")) {
  x <- d[[v]][!is.na(d[[v]])]; n <- length(x); T <- "Descriptive Statistics"
  emit(T, v, "N", n); emit(T, v, "Range", fmt(diff(range(x)), 4)); emit(T, v, "Minimum", fmt(min(x), 4))
  emit(T, v, "Maximum", fmt(max(x), 4)); emit(T, v, "Sum", fmt(sum(x), 4)); emit(T, v, "Mean", fmt(mean(x), 4))
  emit(T, v, "Std. Error of Mean", fmt(sd(x) / sqrt(n), 4)); emit(T, v, "Std. Deviation", fmt(sd(x), 4))
  emit(T, v, "Variance", fmt(var(x), 4)); emit(T, v, "Skewness", fmt(g1(x), 4))
  emit(T, v, "Skewness Std. Error", fmt(seG1(n), 4)); emit(T, v, "Kurtosis", fmt(g2(x), 4))
  emit(T, v, "Kurtosis Std. Error", fmt(seG2(n), 4))
}
emit("Descriptive Statistics", "Valid N (listwise)", "N", sum(complete.cases(d[, c("y", "x1", "t", "c")])))
flush("descriptives")

# ---- FREQUENCIES VARIABLES=t s /NTILES=4 /PERCENTILES=10 90 /STATISTICS=ALL
x <- d$t[!is.na(d$t)]; n <- length(x); T <- "Statistics"
tab <- table(x); mode <- as.numeric(names(tab)[which.max(tab)])
figures <- list("N Valid" = c(n, 0), "N Missing" = c(nrow(d) - n, 0), "Mean" = c(mean(x), 4),
                "Std. Error of Mean" = c(sd(x) / sqrt(n), 4), "Median" = c(quantile(x, 0.5, type = 6), 4),
                "Mode" = c(mode, 4), "Std. Deviation" = c(sd(x), 4), "Coefficient of Variation" = c(sd(x) / mean(x), 4),
                "Variance" = c(var(x), 4), "Skewness" = c(g1(x), 4), "Std. Error of Skewness" = c(seG1(n), 4),
                "Kurtosis" = c(g2(x), 4), "Std. Error of Kurtosis" = c(seG2(n), 4), "Range" = c(diff(range(x)), 4),
                "Minimum" = c(min(x), 4), "Maximum" = c(max(x), 4), "Sum" = c(sum(x), 4))
for (r in names(figures)) emit(T, r, "t", fmt(figures[[r]][1], figures[[r]][2]))
for (p in c(10, 25, 50, 75, 90)) emit(T, paste("Percentile", p), "t", fmt(quantile(x, p / 100, type = 6), 4))
emit(T, "N Valid", "s", sum(!is.na(d$s))); emit(T, "N Missing", "s", sum(is.na(d$s)))
for (v in c("t", "s")) {
  x <- d[[v]][!is.na(d[[v]])]; tab <- table(x); cum <- 0
  for (k in names(tab)) {
    cum <- cum + tab[[k]]
    emit(v, paste("Valid", k), "Frequency", tab[[k]]); emit(v, paste("Valid", k), "Percent", fmt(100 * tab[[k]] / nrow(d), 1))
    emit(v, paste("Valid", k), "Valid Percent", fmt(100 * tab[[k]] / length(x), 1))
    emit(v, paste("Valid", k), "Cumulative Percent", fmt(100 * cum / length(x), 1))
  }
  if (length(x) < nrow(d)) emit(v, "Missing System", "Frequency", nrow(d) - length(x))
  emit(v, "Total", "Frequency", nrow(d))
}
flush("frequencies")

# ---- CORRELATIONS /VARIABLES=y x1 t c /PRINT=TWOTAIL NOSIG FULL /STATISTICS XPROD /MISSING=PAIRWISE
flag <- function(r, p) paste0(fmt(r, 3), if (is.na(p)) "" else if (p < 0.01) "**" else if (p < 0.05) "*" else "")
vars <- c("y", "x1", "t", "c")
for (a in vars) for (b in vars) {
  ok <- !is.na(d[[a]]) & !is.na(d[[b]]); x <- d[[a]][ok]; y <- d[[b]][ok]; n <- sum(ok); T <- "Correlations"
  constant <- sd(x) == 0 || sd(y) == 0
  r <- if (constant) NA else if (a == b) 1 else cor(x, y)
  p <- if (constant || a == b) NA else cor.test(x, y)$p.value
  emit(T, paste0(a, ": Pearson Correlation"), b, flag(r, p))
  emit(T, paste0(a, ": Sig. (2-tailed)"), b, if (a == b) "" else fmt(p, 3))
  sscp <- sum((x - mean(x)) * (y - mean(y)))
  emit(T, paste0(a, ": Sum of Squares and Cross-products"), b, fmt(sscp, 3))
  emit(T, paste0(a, ": Covariance"), b, fmt(sscp / (n - 1), 3))
  emit(T, paste0(a, ": N"), b, n)
}
flush("correlations")

# ---- CORRELATIONS /VARIABLES=y x1 t /PRINT=ONETAIL NOSIG LOWER /MISSING=LISTWISE
vars <- c("y", "x1", "t"); ok <- complete.cases(d[, vars])
for (i in seq_along(vars)) for (j in seq_along(vars)) {
  a <- vars[i]; b <- vars[j]; x <- d[[a]][ok]; y <- d[[b]][ok]; T <- "Correlations"
  if (j > i) {
    emit(T, paste0(a, ": Pearson Correlation"), b, ""); emit(T, paste0(a, ": N"), b, ""); next
  }
  p <- if (a == b) NA else cor.test(x, y)$p.value / 2
  emit(T, paste0(a, ": Pearson Correlation"), b, flag(if (a == b) 1 else cor(x, y), p))
  emit(T, paste0(a, ": Sig. (1-tailed)"), b, if (a == b) "" else fmt(p, 3))
  emit(T, paste0(a, ": N"), b, sum(ok))
}
flush("correlations_listwise")

# ---- NONPAR CORR /VARIABLES=y x1 t /PRINT=BOTH TWOTAIL NOSIG FULL /MISSING=PAIRWISE
vars <- c("y", "x1", "t")
for (method in c("kendall", "spearman")) for (a in vars) for (b in vars) {
  ok <- !is.na(d[[a]]) & !is.na(d[[b]]); x <- d[[a]][ok]; y <- d[[b]][ok]
  T <- if (method == "kendall") "Correlations: Kendall's tau_b" else "Correlations: Spearman's rho"
  test <- suppressWarnings(cor.test(x, y, method = method, exact = FALSE))
  r <- if (a == b) 1 else unname(test$estimate); p <- if (a == b) NA else test$p.value
  emit(T, paste0(a, ": Correlation Coefficient"), b, flag(r, p))
  emit(T, paste0(a, ": Sig. (2-tailed)"), b, if (a == b) "" else fmt(p, 3))
  emit(T, paste0(a, ": N"), b, sum(ok))
}
flush("nonpar_corr")

# ---- REGRESSION: the models of each method, then their tables
regression <- function(name, dep, cands, method, pin = 0.05, pout = 0.10, tolerance = 1e-4) {
  dd <- d[complete.cases(d[, c(dep, cands)]), c(dep, cands)]
  n <- nrow(dd)
  fit <- function(vs) lm(reformulate(if (length(vs)) vs else "1", dep), data = dd)
  tol <- function(c, vs) if (!length(vs)) 1 else 1 - summary(lm(reformulate(vs, c), data = dd))$r.squared
  pEnter <- function(vs, c) { if (tol(c, vs) < tolerance) return(NA); a <- anova(fit(vs), fit(c(vs, c))); a[2, "Pr(>F)"] }
  pRemove <- function(vs, c) { a <- anova(fit(setdiff(vs, c)), fit(vs)); a[2, "Pr(>F)"] }
  steps <- list(); cur <- character()
  if (method %in% c("ENTER", "BACKWARD")) {
    for (c in cands) if (tol(c, cur) >= tolerance) cur <- c(cur, c)
    steps[[1]] <- list(vars = cur, entered = cur, removed = character())
  }
  if (method != "ENTER") repeat {
    if (method != "BACKWARD") {
      out <- setdiff(cands, cur); ps <- sapply(out, function(c) pEnter(cur, c))
      if (!length(out) || all(is.na(ps)) || min(ps, na.rm = TRUE) > pin) break
      pick <- out[which.min(ps)]; cur <- c(cur, pick)
      steps[[length(steps) + 1]] <- list(vars = cur, entered = pick, removed = character())
      if (method == "FORWARD") next
    }
    ps <- sapply(cur, function(c) pRemove(cur, c))
    if (length(cur) && max(ps) > pout) {
      pick <- cur[which.max(ps)]; cur <- setdiff(cur, pick)
      steps[[length(steps) + 1]] <- list(vars = cur, entered = character(), removed = pick)
    } else if (method == "BACKWARD") break
  }
  prevR2 <- 0; prevK <- 0; prevDf <- n - 1
  for (m in seq_along(steps)) {
    s <- steps[[m]]; M <- paste("Model", m); f <- fit(s$vars); sm <- summary(f); k <- length(s$vars)
    emit("Variables Entered/Removed", M, "Variables Entered", if (length(s$entered)) paste(s$entered, collapse = ", ") else ".")
    emit("Variables Entered/Removed", M, "Variables Removed", if (length(s$removed)) paste(s$removed, collapse = ", ") else ".")
    r2 <- sm$r.squared; df <- f$df.residual; rss <- sum(resid(f)^2); tss <- sum((dd[[dep]] - mean(dd[[dep]]))^2)
    emit("Model Summary", M, "R", fmt(sqrt(r2), 3)); emit("Model Summary", M, "R Square", fmt(r2, 3))
    emit("Model Summary", M, "Adjusted R Square", fmt(sm$adj.r.squared, 3))
    emit("Model Summary", M, "Std. Error of the Estimate", fmt(sm$sigma, 4))
    grew <- k >= prevK; df1 <- abs(k - prevK); bigR2 <- if (grew) r2 else prevR2; df2 <- if (grew) df else prevDf
    fch <- (abs(r2 - prevR2) / df1) / ((1 - bigR2) / df2)
    emit("Model Summary", M, "R Square Change", fmt(r2 - prevR2, 3)); emit("Model Summary", M, "F Change", fmt(fch, 3))
    emit("Model Summary", M, "df1", df1); emit("Model Summary", M, "df2", df2)
    emit("Model Summary", M, "Sig. F Change", fmt(pf(fch, df1, df2, lower.tail = FALSE), 3))
    prevR2 <- r2; prevK <- k; prevDf <- df
    a <- anova(fit(character()), f)
    emit("ANOVA", paste(M, "Regression"), "Sum of Squares", fmt(tss - rss, 3)); emit("ANOVA", paste(M, "Regression"), "df", k)
    emit("ANOVA", paste(M, "Regression"), "Mean Square", fmt((tss - rss) / k, 3))
    emit("ANOVA", paste(M, "Regression"), "F", fmt(a[2, "F"], 3)); emit("ANOVA", paste(M, "Regression"), "Sig.", fmt(a[2, "Pr(>F)"], 3))
    emit("ANOVA", paste(M, "Residual"), "Sum of Squares", fmt(rss, 3)); emit("ANOVA", paste(M, "Residual"), "df", df)
    emit("ANOVA", paste(M, "Residual"), "Mean Square", fmt(rss / df, 3)); emit("ANOVA", paste(M, "Total"), "Sum of Squares", fmt(tss, 3))
    co <- sm$coefficients; ci <- confint(f, level = 0.95)
    for (j in seq_len(nrow(co))) {
      v <- rownames(co)[j]; R <- paste(M, if (v == "(Intercept)") "(Constant)" else v)
      emit("Coefficients", R, "B", fmt(co[j, 1], 4)); emit("Coefficients", R, "Std. Error", fmt(co[j, 2], 4))
      emit("Coefficients", R, "t", fmt(co[j, 3], 3)); emit("Coefficients", R, "Sig.", fmt(co[j, 4], 3))
      emit("Coefficients", R, "95.0% CI Lower Bound", fmt(ci[j, 1], 4)); emit("Coefficients", R, "95.0% CI Upper Bound", fmt(ci[j, 2], 4))
      if (v != "(Intercept)") {
        emit("Coefficients", R, "Beta", fmt(co[j, 1] * sd(dd[[v]]) / sd(dd[[dep]]), 3))
        t <- tol(v, setdiff(s$vars, v)); emit("Coefficients", R, "Tolerance", fmt(t, 3)); emit("Coefficients", R, "VIF", fmt(1 / t, 3))
      }
    }
    for (c in setdiff(cands, s$vars)) {
      R <- paste(M, c); t <- tol(c, s$vars); emit("Excluded Variables", R, "Tolerance", fmt(t, 3))
      if (t < tolerance) { emit("Excluded Variables", R, "Beta In", "."); next }
      g <- summary(fit(c(s$vars, c)))$coefficients; tv <- g[c, 3]; gdf <- n - k - 2
      emit("Excluded Variables", R, "Beta In", fmt(g[c, 1] * sd(dd[[c]]) / sd(dd[[dep]]), 3))
      emit("Excluded Variables", R, "t", fmt(tv, 3)); emit("Excluded Variables", R, "Sig.", fmt(g[c, 4], 3))
      emit("Excluded Variables", R, "Partial Correlation", fmt(tv / sqrt(tv^2 + gdf), 3))
    }
    X <- cbind(1, as.matrix(dd[, s$vars, drop = FALSE])); Xs <- sweep(X, 2, sqrt(colSums(X^2)), "/")
    e <- eigen(crossprod(Xs), symmetric = TRUE); phi <- sweep(e$vectors^2, 2, e$values, "/"); pr <- phi / rowSums(phi)
    for (dim in seq_along(e$values)) {
      R <- paste(M, "Dimension", dim)
      emit("Collinearity Diagnostics", R, "Eigenvalue", fmt(e$values[dim], 3))
      emit("Collinearity Diagnostics", R, "Condition Index", fmt(sqrt(e$values[1] / e$values[dim]), 3))
      emit("Collinearity Diagnostics", R, "(Constant)", fmt(pr[1, dim], 2))
      for (j in seq_along(s$vars)) emit("Collinearity Diagnostics", R, s$vars[j], fmt(pr[j + 1, dim], 2))
    }
    if (m == length(steps)) {
      fv <- fitted(f); re <- resid(f)
      stats <- list("Predicted Value" = fv, "Residual" = re, "Std. Predicted Value" = (fv - mean(fv)) / sd(fv),
                    "Std. Residual" = re / sm$sigma)
      for (r in names(stats)) {
        v <- stats[[r]]
        emit("Residuals Statistics", r, "Minimum", fmt(min(v), 4)); emit("Residuals Statistics", r, "Maximum", fmt(max(v), 4))
        emit("Residuals Statistics", r, "Mean", fmt(mean(v), 4)); emit("Residuals Statistics", r, "Std. Deviation", fmt(sd(v), 4))
        emit("Residuals Statistics", r, "N", length(v))
      }
      emit("PRESS Statistic", M, "Value", fmt(sum((re / (1 - hatvalues(f)))^2), 4))
    }
  }
  flush(name)
}
regression("regression_enter", "y", c("x1", "x2", "x3"), "ENTER")
regression("regression_stepwise", "y", c("t", "x2", "x1"), "STEPWISE")
regression("regression_forward", "y", c("t", "x2", "x1"), "FORWARD")
regression("regression_backward", "y", c("t", "x1", "x2"), "BACKWARD", pout = 0.10)
