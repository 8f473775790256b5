; A three-step trace of a counter that must stay below its bound, unrolled
; as a model checker would hand it to an interpolating solver: step i is the
; assertion Si over the state variables c_i and c_(i+1). A sequence query
; asks for the interpolants between the steps; a tree query puts the two
; first steps side by side under the third. A probe inside push/pop is
; withdrawn again, and a query made inside it sees it.
(set-logic QF_UFLIA)
(declare-fun bound () Int)
(declare-fun c0 () Int)
(declare-fun c1 () Int)
(declare-fun c2 () Int)
(declare-fun c3 () Int)
(declare-fun step (Int) Int)
(define-fun below ((v Int)) Bool (< v bound))

(assert (! (and (= c0 0) (> bound 2)) :named S0))
(assert (! (let ((n (step c0))) (and (= c1 n) (or (= n (+ c0 1)) (= n c0)))) :named S1))
(assert (! (let ((n (step c1))) (and (= c2 n) (or (= n (+ c1 1)) (= n c1)))) :named S2))
(assert (! (and (= c3 (+ c2 1)) (not (below c3))) :named S3))

(push 1)
(assert (! (below c1) :named probe))
(get-interpolants S0 S1 (and probe S2) S3)
(pop 1)

(check-sat)
(get-interpolants S0 S1 S2 S3)
(get-interpolants (S0) (S1) S2 S3)
(exit)
